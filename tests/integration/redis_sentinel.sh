#!/bin/bash
# A primary, two replicas and three sentinels: conformance, too few replicas, failover under writes.
# ctest-label: redis
# ctest-timeout: 400
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
sentinels
export SCRATCH=$scratch
for tests in '*Sentinel*-*Failover*' '*Sentinel*OrderedFailover*' '*Sentinel*CrashFailover*'; do
  # Both replicas must be back before the next failover.
  wait_for "three sentinels with two replicas" settled
  "$build/bin/integration_redis_test" --gtest_filter="$tests" || fail "$tests"
done

#!/bin/bash
# A primary, two replicas and three sentinels: conformance, too few replicas, failover under writes.
# ctest-label: redis
# ctest-timeout: 240
set -eu
. "$(dirname "$0")/../support/redis.sh"
sentinels
export SCRATCH=$scratch
run() { "$build/bin/integration_redis_test" --gtest_filter="$1"; }
run '*Sentinel*-*Failover*'
run '*Sentinel*OrderedFailover*'
# Both replicas must be back before the primary is taken away.
wait_for '[ "$(replicas | grep -A1 "^master-link-status$" | grep -c "^ok$")" -eq 2 ]'
run '*Sentinel*CrashFailover*'

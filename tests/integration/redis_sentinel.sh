#!/bin/bash
# A primary, two replicas and three sentinels: conformance, too few replicas, failover under writes.
# ctest-label: redis
# ctest-timeout: 240
set -eu
. "$(dirname "$0")/../support/redis.sh"
server 16379
server 16380 "replicaof 127.0.0.1 16379"
server 16381 "replicaof 127.0.0.1 16379"
for port in 26379 26380 26381; do sentinel $port; done
replicas() { redis-cli -p 26379 sentinel replicas mail | tr -d '\r'; }
wait_for 'redis-cli -p 26379 sentinel ckquorum mail 2>/dev/null | grep -q "OK 3 usable"'
wait_for '[ "$(replicas | grep -c "^127.0.0.1:1638")" -eq 2 ]'
password_file right s3cret
export SCRATCH=$scratch
run() { "$build/bin/integration_redis_test" --gtest_filter="$1"; }
run '*Sentinel*-*Failover*'
run '*Sentinel*OrderedFailover*'
# Both replicas must be back before the primary is taken away.
wait_for '[ "$(replicas | grep -A1 "^master-link-status$" | grep -c "^ok$")" -eq 2 ]'
run '*Sentinel*CrashFailover*'

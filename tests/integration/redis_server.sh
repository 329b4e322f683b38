#!/bin/bash
# One Redis server with a password and a replica of it: conformance, and everything that can be wrong
# with a single server.
# ctest-label: redis
# ctest-timeout: 180
set -eu
. "$(dirname "$0")/../support/redis.sh"
server 16379
server 16380 "replicaof 127.0.0.1 16379"
wait_for 'REDISCLI_AUTH=s3cret redis-cli -p 16380 info replication | grep -q master_link_status:up'
password_file right s3cret
password_file wrong guess
password_file publisher pubpw
SCRATCH=$scratch exec "$build/bin/integration_redis_test" --gtest_filter='-*Sentinel*'

#!/bin/bash
# One Redis server with a password and a replica of it: conformance, and everything that can be wrong
# with a single server.
# ctest-label: redis
# ctest-timeout: 400
here=$(dirname "$0")
. "$here/lib/private.bash"
. "$here/lib/driver.bash"
. "$here/lib/redis.bash"
server 16379
server 16380 "replicaof 127.0.0.1 16379"
wait_for "the replica" redis_says master_link_status:up 16380 info replication
password_file right s3cret
password_file wrong guess
password_file publisher pubpw
SCRATCH=$scratch "$build/bin/integration_redis_test" --gtest_filter='-*Sentinel*' || fail "a server"

#!/bin/sh
# loading_test.sh LOADING LOADING_SDK SDK MODULE: each way to open SDK and module ends as the documents say.
set -u
loading=$1 loading_sdk=$2 sdk=$3 module=$4
failed=0

# ends STATUS PROGRAM ARGUMENT...
ends()
{
    expected=$1
    shift
    "$@"
    status=$?
    [ $status -eq "$expected" ] || { echo "$*: exit status $status, expected $expected"; failed=1; }
}

ends 0 "$loading" "$sdk" NG "$module" NG
ends 0 "$loading" "$sdk" LG "$module" LG
ends 0 "$loading_sdk" - - "$module" NG
ends 99 "$loading" "$sdk" N "$module" NG    # the services are not visible to the module
ends 99 "$loading" "$sdk" L "$module" LG    # nor later: the limits are looked up when it is opened
ends 13 "$loading" "$sdk" NG "$module" N    # bridge_port_set does not find the module
ends 13 "$loading_sdk" - - "$module" L
exit $failed

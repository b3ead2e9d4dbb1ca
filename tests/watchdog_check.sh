#!/bin/sh
# The test watchdog, run on a test that hangs on purpose with a 2 s limit:
# the program must end with status 124 after naming the hung test and
# listing itself and the process the test started. Where gdb can attach to
# a process here, the hung test's own frame must be among the stacks.
#
#   watchdog_check.sh TEST_PROGRAM
set -u
prog=$1
test=Watchdog.DISABLED_HangsWaitingForAChild
out=$(KESTRO_TEST_WATCHDOG=2 "$prog" --gtest_also_run_disabled_tests \
  --gtest_filter="$test" 2>&1)
rc=$?
fail() { printf '%s\n' "$out"; echo "watchdog check: $1"; exit 1; }

[ "$rc" -eq 124 ] || fail "status $rc, not 124"
printf '%s\n' "$out" | grep -qF "watchdog: $test has run for 2 s" ||
  fail "the hung test is not named"
[ "$(printf '%s\n' "$out" | grep -c '^watchdog: process [0-9]*$')" -eq 2 ] ||
  fail "not two processes listed (the program and its child)"

# Whether gdb can print a stack here at all: on a process of our own.
sleep 30 &
probe=$!
if gdb -q -batch -p "$probe" -ex bt >/dev/null 2>&1; then can_attach=yes; else can_attach=no; fi
kill "$probe" 2>/dev/null
if [ "$can_attach" = yes ]; then
  # With line tables only, gdb names the frame TestBody without its class;
  # the file of the frame tells it is the hung test's.
  printf '%s\n' "$out" | grep -qE 'TestBody \(.*\) at [^ ]*test_watchdog\.cpp:[0-9]' ||
    fail "the hung test's frame is not among the stacks"
  echo "watchdog check: status 124, test named, 2 processes, the test's frame shown"
else
  echo "watchdog check: status 124, test named, 2 processes (gdb cannot attach here:" \
    "stacks not checked)"
fi

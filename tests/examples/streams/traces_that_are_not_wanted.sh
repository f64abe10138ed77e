# Only the lines from before the command line is looked at, and none at all when the next run clears them.
"$1" --no-trace rfc6241_7_5_lock.xml >/dev/null
"$2" list
"$2" cat processor-nyx/processor.trace
"$1" --no-trace --clear-traces rfc6241_7_5_lock.xml >/dev/null
"$2" list

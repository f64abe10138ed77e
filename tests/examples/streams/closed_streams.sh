# No standard stream may be taken for the socket between the two processes.
try() {
    echo "$1 closed: exit code $2"
}
code=0
"$1" rfc6241_7_5_lock.xml <&- || code=$?
try 'standard input' $code
code=0
"$1" <&- || code=$?
try 'standard input, but needed' $code
code=0
"$1" rfc6241_7_5_lock.xml >&- || code=$?
try 'standard output' $code
code=0
"$1" rfc6241_7_5_lock.xml 2>&- || code=$?
try 'standard error' $code
code=0
"$1" rfc6241_7_5_lock.xml <&- >&- 2>&- || code=$?
try all $code

# A session with no file behind it: the requests come from the standard input.
"$1" @2 <rfc6241_7_5_lock.xml

# What was traced up to the end is there, and a second run writes behind it.
"$1" --die 3 rfc6241_7_5_lock.xml rfc6241_7_6_unlock.xml >/dev/null
"$2" cat processor-nyx/me.trace
"$1" create_interface.xml >/dev/null
"$2" cat processor-nyx/me.trace

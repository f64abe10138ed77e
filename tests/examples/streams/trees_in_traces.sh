# What was asked for and what was answered, as trees in the trace file of the back end.
"$1" interfaces.xml create_address.xml rfc6241_8_3_commit.xml eth0_addresses.xml >/dev/null
"$2" cat processor-nyx/me.trace

# The fifth edition of XML 1.0 allows names that the fourth does not know, and by which the type of bad-element is
# defined. Such an element is refused without being named.
"$1" - <<'TEXT'
<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><get><Ͱ/></get></rpc>
TEXT

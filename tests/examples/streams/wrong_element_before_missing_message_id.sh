# The agent finds the wrong element while it fills the record. Message id and session are looked at by the processor.
"$1" @unknown - <<'TEXT'
<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><lock><target/></lock></rpc>
]]>]]>
<rpc xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><lock><target><running/></target></lock></rpc>
]]>]]>
<rpc message-id="3" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><lock><target><running/></target></lock></rpc>
TEXT

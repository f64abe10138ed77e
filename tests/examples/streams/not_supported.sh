# What the program does not support, and how it says so.
"$1" - <<'TEXT'
<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <get><filter type="xpath" select="/top"/></get>
</rpc>
]]>]]>
<rpc message-id="2" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <copy-config><target><running/></target><source><url>file:///c.xml</url></source></copy-config>
</rpc>
]]>]]>
<rpc message-id="3" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <edit-config><target><running/></target><url>file:///c.xml</url></edit-config>
</rpc>
]]>]]>
<rpc message-id="4" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <validate><source><url>file:///c.xml</url></source></validate>
</rpc>
]]>]]>
<rpc message-id="5" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <delete-config><target><url>file:///c.xml</url></target></delete-config>
</rpc>
]]>]]>
<rpc message-id="6" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <commit><confirmed/></commit>
</rpc>
]]>]]>
<rpc message-id="7" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <cancel-commit/>
</rpc>
]]>]]>
<rpc message-id="8" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">
  <get><with-defaults xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults">report-all</with-defaults></get>
</rpc>
TEXT

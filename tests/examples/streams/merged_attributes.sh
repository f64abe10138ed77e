# An attribute is its namespace and its name, whatever prefix it is written with. What the client writes last counts, and
# what it leaves out stays as it was, with another prefix if that one has come to mean something else.
edit() {
    echo '<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">'
    echo "<edit-config><target><running/></target><config>$1</config></edit-config></rpc>"
    echo ']]>]]>'
}
{
    edit '<same xmlns="urn:a" xmlns:p="urn:p" p:x="1" x="2" xml:lang="en"/>'
    edit '<same xmlns="urn:a" xmlns:q="urn:p" q:x="3" xml:lang="de"/>'
    edit '<other xmlns="urn:a" xmlns:p="urn:p" p:x="1" p:keep="k"/>'
    edit '<other xmlns="urn:a" xmlns:p="urn:q" p:x="2"/>'
    edit '<value xmlns="urn:a" xmlns:p="urn:p" p:x="1">p:one</value>'
    edit '<value xmlns="urn:a" xmlns:p="urn:q">p:two</value>'
    cat get_running.xml
} | "$1"

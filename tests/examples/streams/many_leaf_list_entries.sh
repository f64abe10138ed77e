# As many entries as a real list may have, in one request: added, and then deleted. Only the replies are shown.
edit() {
    echo "<rpc message-id=\"$1\" xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\""
    echo '     xmlns:xc="urn:ietf:params:xml:ns:netconf:base:1.0"><edit-config><target><running/></target><config>'
    echo '<top xmlns="http://example.com/schema/1.2/config">'
    seq 1 20000 | sed "s|.*|<server$2>host-&</server>|"
    echo '</top></config></edit-config></rpc>'
}
{
    edit 1 ''
    echo ']]>]]>'
    edit 2 ' xc:operation="delete"'
    echo ']]>]]>'
    cat get_running.xml
} | "$1" --budget 100000000 --max-message 100000000

# Well-formed, but with more in a comment, or in an attribute, than the XML parser takes.
filling() {
    head -c 11000000 /dev/zero | tr '\0' 'x'
}
{
    printf '<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><get/><!--'
    filling
    echo '--></rpc>]]>]]>'
    printf '<rpc message-id="2" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0" a="'
    filling
    echo '"><get/></rpc>]]>]]>'
    cat get_running.xml
} | "$1"

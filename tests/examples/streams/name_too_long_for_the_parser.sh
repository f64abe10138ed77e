# Well-formed, but no name for the XML parser.
{
    printf '<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><get><'
    head -c 60000 /dev/zero | tr '\0' 'x'
    echo '/></get></rpc>'
} | "$1"

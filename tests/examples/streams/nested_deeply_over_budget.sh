# As deep as the XML parser takes; each level costs a node of the processor's memory.
{
    echo '<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">'
    yes '<a>' | head -n 200
    yes '</a>' | head -n 200
    echo '</rpc>'
} | "$1" --budget 20000

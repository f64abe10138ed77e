# End-of-message markers between requests, behind the last one, and around nothing at all.
{
    cat users.xml
    echo ']]>]]>'
    cat rfc6241_6_4_6_elements_of_one_user.xml
    printf ']]>]]>\n\n]]>]]>'
} | "$1"

# Markers around nothing are no request either.
printf ']]>]]>\n]]>]]>' | "$1"

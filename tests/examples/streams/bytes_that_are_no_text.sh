head -c 100000 /dev/zero | "$1"

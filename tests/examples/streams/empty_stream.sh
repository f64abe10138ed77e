"$1" </dev/null

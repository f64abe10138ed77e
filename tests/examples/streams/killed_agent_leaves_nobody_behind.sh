# The processor stops itself, so that it cannot notice that the agent is killed.
state_of() { # of a process: empty when there is none
    sed 's/.*) //; s/ .*//' "/proc/$1/stat" 2>/dev/null
}
wait_until() { # a condition, for at most ten seconds
    tries=0
    until eval "$1"; do
        tries=$((tries + 1))
        if [ $tries -gt 100 ]; then
            echo "never true: $1"
            exit 1
        fi
        sleep 0.1
    done
}

"$1" --stall 2 --timeout 60 rfc6241_7_5_lock.xml &
agent=$!
wait_until 'processor=$(cat /proc/$agent/task/$agent/children) && [ -n "$processor" ]'
processor=${processor% }
wait_until '[ "$(state_of $processor)" = T ]'
kill -KILL $agent
wait $agent 2>/dev/null
wait_until 'case "$(state_of $processor)" in "" | Z) true ;; *) false ;; esac'
echo 'both are gone'

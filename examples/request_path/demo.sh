#!/bin/sh
# Shows what request_path does, step by step: demo.sh PROGRAM [SKEIN]
# PROGRAM is the built request_path, SKEIN the viewer of trace files; without it, one that is installed is used.
set -eu
program=$(realpath "${1:?usage: demo.sh PROGRAM [SKEIN]}")
skein=$(realpath "${2:-$(command -v skein || echo skein)}")

# Trace files stay when the programs have ended: those of this demonstration go with it. A directory of its own, so that
# nobody's traces are cleared.
SKEIN_DIR=$(mktemp -d)
export SKEIN_DIR
trap 'rm -rf "$SKEIN_DIR"' EXIT
trap 'exit 1' HUP INT PIPE TERM
cd "$(dirname "$0")/inputs"

# Prints lines of comment.
say() {
    printf '\n'
    printf '# %s\n' "$@"
}

# Failures are part of the story: the exit code is told instead of ending the demonstration.
show() {
    name=$1
    command=$2
    shift 2
    printf '\n$ %s %s\n' "$name" "$*"
    code=0
    "$command" "$@" 2>&1 || code=$?
    [ "$code" -eq 0 ] || printf '(exit code %s)\n' "$code"
}

run() {
    show request_path "$program" "$@"
}

trace() {
    show skein "$skein" "$@"
}

say "Two processes with a socket between them: an agent that speaks NETCONF, and a processor that" \
    "owns the datastores. What travels between them are libnyx's message records." \
    "This is a request as an operator's tool sends it:"
printf '\n$ cat rfc6241_7_2_set_mtu.xml\n'
cat rfc6241_7_2_set_mtu.xml

say "The agent makes a record of it, encodes it and sends it. --verbose shows what arrives: first the" \
    "request that opens a session, then ours - its members, its size on the wire, and where each nested" \
    "record lies in the encoding. The last thing is the reply that the operator's tool gets." \
    "The session's id is drawn at random; --session-seed makes it the same in every run."
run --verbose rfc6241_7_2_set_mtu.xml

say "A change with a safety net: lock the candidate, edit it, validate it, commit it. Then read back a part" \
    "of the running configuration through a subtree filter."
run lock_candidate.xml interfaces.xml rfc6241_8_6_validate.xml rfc6241_8_3_commit.xml eth0_addresses.xml

say "Two sessions of the agent, @1 and @2: the second one neither gets the lock of the first nor writes past it." \
    "When it kills the first session, the lock is free. The client is told, and names, the agent's numbers; the agent" \
    "puts the ids of the processor's session store in their place, and the numbers in the place of ids."
run @1 rfc6241_7_5_lock.xml @2 rfc6241_7_5_lock.xml rfc6241_7_2_set_mtu.xml kill_session_1.xml rfc6241_7_5_lock.xml

say "Errors are answers, too. Creating what is there already; one reply with two errors, from an edit that was" \
    "to go on after errors; and what it did change nevertheless."
run create_interface.xml create_interface.xml continue_on_error.xml get_running.xml

say "The path of a failing node is put together from the node up to the root, so that the prefix ns1 is that of its" \
    "own namespace."
run interfaces.xml create_address.xml

say "A request without a message id, an operation that nobody knows, and something that is not XML."
run rfc6241_4_3_missing_message_id.xml bad_unknown_operation.xml bad_not_well_formed.xml

say "Every standard failure can be provoked, also those that no client of NETCONF causes: a request that names no" \
    "session, a result code of the back end, and memory so short that an error cannot even be written. What is left of" \
    "it then is that the request failed, which the client is told in these words."
run @none get_running.xml
run back_end_aaf2bc00.xml memory_short.xml back_end_aaf2bc00.xml

say "Requests are decoded into an arena with a budget. One that asks for more is refused, and so is one that is too" \
    "long to be taken in at all; the conversation goes on."
run --budget 1000 interfaces.xml rfc6241_7_8_close_session.xml
run --max-message 512 interfaces.xml rfc6241_7_8_close_session.xml

say "A message that is cut short, and a processor that is killed: one line from each side that is left."
run --cut 20 interfaces.xml
run --die 2 interfaces.xml

say "Both processes log through the library. Levels are raised for everything, for one component, or for one" \
    "operation: here the edits are heard, and the locks are not."
run --log-operation edit-config=debug lock_candidate.xml interfaces.xml unlock_candidate.xml

say "Whatever the levels are, every line goes into trace files in memory: one for each process and component, the" \
    "newest lines in the place of the oldest. They are there after the processes have ended, also after a processor" \
    "that is killed at its third request. Behind # is the number of the line: a process counts them over all its" \
    "files. The agent's last line is about the request that got no answer."
run --clear-traces --die 3 rfc6241_7_5_lock.xml interfaces.xml
if [ ! -f "$skein" ]; then
    say "skein, which would show them now, is not here: give its path behind that of request_path."
    exit 0
fi
trace list
for file in agentx-nyx/processor.trace processor-nyx/processor.trace processor-nyx/me.trace; do
    trace cat "$file"
done

say "The back end's trace file shows what it was asked for and what it answered, as trees: here an edit, and what is" \
    "read back. The brackets tell the operation of an edit."
run --clear-traces create_interface.xml get_running.xml
trace cat processor-nyx/me.trace

#!/usr/bin/env bash
# share.sh -- a simulated network share with real latency, on loopback only.
#
#   share.sh start DELAY_MS SRC MNT   netns "scshare" (lo up, DELAY_MS on every packet that leaves lo:
#                                     each packet crosses lo once, so the round trip is 2*DELAY_MS), an
#                                     sshd on 127.0.0.1:2222 inside it, and SRC mounted read-only with
#                                     sshfs on MNT in the host's mount namespace (sshfs and its ssh run in
#                                     the netns's network, via nsenter --net).
#   share.sh remount                  unmount + mount again: cold sshfs and kernel (FUSE) caches.
#                                     With SC_SHARE_SFTPLOG=FILE, the new session's sftp-server logs
#                                     every SFTP request (DEBUG3) to FILE; without it, no log.
#   share.sh stop                     unmount, kill the sshd started here (pid file), delete the netns.
#   share.sh kill                     the server dies: its sshd and every session of it are killed
#                                     (SIGKILL); sshfs then fails every request and ends.
#   share.sh status                   what is up.
#
# Everything is idempotent: start on a running share restarts it with the new parameters, stop on a
# stopped share does nothing. State, keys and config live in $SC_SHARE_DIR (default /tmp/sc-share);
# SC_SHARE_NS and SC_SHARE_PORT name another namespace and port (default scshare, 2222).
# No address other than 127.0.0.1 inside the namespace is used.
#
# The delay: "tc qdisc replace dev lo root netem delay DELAY_MS" where the kernel has sch_netem. This
# machine's kernel has neither sch_netem nor sch_fq, so the fallback is netfilter: in the netns,
# "iptables -t mangle -A OUTPUT -o lo -j NFQUEUE --queue-num 0" and nfq_delay.c (next to this script),
# which holds each queued packet DELAY_MS and then accepts it, in order. Same effect as netem's
# constant delay: every packet (TCP data, ACKs, ICMP) is late by DELAY_MS, so ping shows 2*DELAY_MS.
# SC_SHARE_DELAY=nfq forces the fallback; SC_SHARE_SPIN_US (300) is nfq_delay's early wake-up and spin.
set -u
NS=${SC_SHARE_NS:-scshare}
PORT=${SC_SHARE_PORT:-2222}
D=${SC_SHARE_DIR:-/tmp/sc-share}
STATE=$D/state
PIDF=$D/sshd.pid
CONF=$D/sshd_config
HOSTKEY=$D/host_ed25519
CLIKEY=$D/client_ed25519
NFQ=$D/nfq_delay
NFQPID=$D/nfq_delay.pid
HERE=$(cd "$(dirname "$0")" && pwd)

die() { echo "share.sh: $*" >&2; exit 1; }
inns() { nsenter --net=/run/netns/$NS "$@"; }   # network of the netns, host's mount namespace

is_mounted() { [ -n "${1:-}" ] && mountpoint -q "$1" 2>/dev/null; }

load_state() { DELAY= SRC= MNT=; [ -f "$STATE" ] && . "$STATE"; }

do_mount() {
    is_mounted "$MNT" && return 0
    if [ -n "${SC_SHARE_SFTPLOG:-}" ]; then echo "$SC_SHARE_SFTPLOG" > $D/sftplog; else rm -f $D/sftplog; fi
    mkdir -p "$MNT"
    inns sshfs -p $PORT \
        -o IdentityFile=$CLIKEY,StrictHostKeyChecking=no,UserKnownHostsFile=/dev/null,LogLevel=ERROR,BatchMode=yes \
        -o ro \
        "root@127.0.0.1:$SRC" "$MNT" || die "sshfs mount of $SRC on $MNT failed"
    # the mount must be visible from the host shell (not a private mount namespace)
    is_mounted "$MNT" || die "$MNT is not a mount point in the host namespace"
}

do_umount() {
    [ -n "${1:-}" ] || return 0
    local i
    for i in 1 2 3 4 5 6 7 8 9 10; do
        is_mounted "$1" || return 0
        fusermount -u "$1" 2>/dev/null || true
        is_mounted "$1" || return 0
        sleep 0.3
    done
    fusermount -u -z "$1" 2>/dev/null || true   # still busy: detach lazily
}

sshd_running() { [ -f "$PIDF" ] && kill -0 "$(cat "$PIDF")" 2>/dev/null; }

end_pid() { # PIDFILE: ends the process it names (TERM, then KILL after 5 s) and removes it
    [ -f "$1" ] || return 0
    local pid; pid=$(cat "$1")
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
        kill "$pid"
        for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
        kill -0 "$pid" 2>/dev/null && kill -9 "$pid"
    fi
    rm -f "$1"
}

stop() {
    load_state
    do_umount "$MNT"
    end_pid "$PIDF"
    end_pid "$NFQPID"
    ip netns list 2>/dev/null | grep -qw "^$NS" && ip netns del $NS
    rm -f "$STATE"
    return 0
}

keys() {
    mkdir -p "$D" /run/sshd; chmod 700 "$D"
    [ -f $HOSTKEY ] || ssh-keygen -q -t ed25519 -N '' -C sc-share-host -f $HOSTKEY
    [ -f $CLIKEY ] || ssh-keygen -q -t ed25519 -N '' -C sc-share-client -f $CLIKEY
    cp $CLIKEY.pub $D/authorized_keys; chmod 600 $D/authorized_keys
    cat > $CONF <<EOF
# dedicated sshd for the simulated share (share.sh); lives only in netns $NS
Port $PORT
ListenAddress 127.0.0.1
HostKey $HOSTKEY
PidFile $PIDF
PermitRootLogin prohibit-password
PubkeyAuthentication yes
PasswordAuthentication no
KbdInteractiveAuthentication no
AuthenticationMethods publickey
AuthorizedKeysFile $D/authorized_keys
StrictModes no
UsePAM no
X11Forwarding no
AllowTcpForwarding no
AllowAgentForwarding no
PrintMotd no
UseDNS no
LogLevel ERROR
Subsystem sftp $D/sftp-server.sh
EOF
    cat > $D/sftp-server.sh <<EOF
#!/bin/sh
# sftp subsystem of the share: plain sftp-server, or with every request logged when $D/sftplog names a file
if [ -s $D/sftplog ]; then exec /usr/lib/openssh/sftp-server -e -l DEBUG3 2>>"\$(cat $D/sftplog)"; fi
exec /usr/lib/openssh/sftp-server
EOF
    chmod 755 $D/sftp-server.sh
}

add_delay() { # DELAY_MS
    local delay=$1
    if [ "${SC_SHARE_DELAY:-}" != nfq ] && inns tc qdisc replace dev lo root netem delay ${delay}ms limit 100000 2>/dev/null; then
        echo "delay: netem ${delay}ms on lo"
        return 0
    fi
    if [ ! -x "$NFQ" ] || [ "$HERE/nfq_delay.c" -nt "$NFQ" ]; then
        gcc -O2 -Wall "$HERE/nfq_delay.c" -o "$NFQ" -lnetfilter_queue -lnfnetlink \
            || die "no netem here, and nfq_delay does not build (apt-get install -y libnetfilter-queue-dev iptables)"
    fi
    rm -f "$NFQPID"
    setsid nsenter --net=/run/netns/$NS "$NFQ" 0 "$(awk "BEGIN{print $delay*1000}")" "$NFQPID" "${SC_SHARE_SPIN_US:-300}" \
        </dev/null >>"$D/nfq_delay.log" 2>&1 &
    for _ in $(seq 50); do [ -s "$NFQPID" ] && break; sleep 0.1; done
    [ -s "$NFQPID" ] || die "nfq_delay did not start (see $D/nfq_delay.log)"
    inns iptables -t mangle -A OUTPUT -o lo -j NFQUEUE --queue-num 0 || die "iptables NFQUEUE rule failed"
    echo "delay: no sch_netem in this kernel; NFQUEUE + nfq_delay ${delay}ms on lo output (pid $(cat $NFQPID))"
}

check_rtt() { # DELAY_MS: ping 127.0.0.1 in the netns, want an average of about 2*DELAY_MS
    local out avg
    out=$(inns ping -c3 -i 0.2 127.0.0.1 | tail -1)
    echo "ping in netns: $out"
    avg=$(echo "$out" | awk -F/ '{print $5}')
    awk -v a="$avg" -v d="$1" 'BEGIN{exit !(a >= 1.8*d && a <= 2*d + 5)}' \
        || die "round trip ${avg}ms is not about 2*$1 ms"
}

start() {
    local delay=$1 src=$2 mnt=$3
    [[ $delay =~ ^[0-9]+(\.[0-9]+)?$ ]] || die "DELAY_MS must be a number"
    [ -d "$src" ] || die "no directory $src"
    src=$(cd "$src" && pwd -P)
    stop
    keys
    ip netns add $NS || die "ip netns add failed"
    ip netns exec $NS ip link set lo up
    add_delay "$delay"
    /usr/sbin/sshd -t -f $CONF || die "bad sshd config"
    inns /usr/sbin/sshd -f $CONF || die "sshd did not start"
    for _ in $(seq 50); do sshd_running && break; sleep 0.1; done
    sshd_running || die "sshd did not write its pid file"
    check_rtt "$delay"
    printf 'DELAY=%q\nSRC=%q\nMNT=%q\n' "$delay" "$src" "$mnt" > "$STATE"
    DELAY=$delay SRC=$src MNT=$mnt
    do_mount
    echo "share up: $SRC -> $MNT via sshfs over netns $NS lo, one-way delay ${DELAY}ms (RTT $(awk "BEGIN{print 2*$DELAY}") ms), sshd pid $(cat $PIDF)"
}

remount() {
    load_state
    [ -n "$MNT" ] && sshd_running || die "share is not started"
    do_umount "$MNT"
    do_mount
}

kill_server() {
    load_state
    sshd_running || die "share is not started"
    local p
    for p in $(ip netns pids $NS); do
        case "$(cat /proc/$p/comm 2>/dev/null)" in sshd | sftp-server) kill -9 "$p" 2>/dev/null ;; esac
    done
    rm -f "$PIDF"
}

status() {
    load_state
    if [ -z "$MNT" ]; then echo "stopped"; return 1; fi
    echo "DELAY=${DELAY}ms SRC=$SRC MNT=$MNT"
    sshd_running && echo "sshd pid $(cat $PIDF)" || echo "sshd not running"
    is_mounted "$MNT" && echo "mounted" || echo "not mounted"
    inns tc qdisc show dev lo
    inns iptables -t mangle -S OUTPUT | grep NFQUEUE
    if [ -f "$NFQPID" ] && kill -0 "$(cat $NFQPID)" 2>/dev/null; then
        kill -USR1 "$(cat $NFQPID)"; sleep 0.2; tail -1 "$D/nfq_delay.log"
    fi
    return 0
}

case ${1:-} in
    start) [ $# -eq 4 ] || die "usage: share.sh start DELAY_MS SRC MNT"; start "$2" "$3" "$4" ;;
    stop) stop ;;
    remount) remount ;;
    kill) kill_server ;;
    status) status ;;
    *) die "usage: share.sh start DELAY_MS SRC MNT | stop | remount | kill | status" ;;
esac

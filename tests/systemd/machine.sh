#!/usr/bin/env bash
# A throw-away system with a real systemd as its first process: an overlay of this machine's root, booted by systemd-nspawn
# (Debian: systemd systemd-container) in half a second. Needs root. Nothing done inside reaches the machine.
#   machine.sh make DIR          DIR/root is the system's root, to be changed at will before it is booted
#   machine.sh boot DIR          boots and waits until it is up (/tmp, /run and /dev inside are its own)
#   machine.sh exec DIR CMD...   runs CMD inside, as root; its status is CMD's
#   machine.sh stop DIR          powers off and removes everything under DIR
set -euo pipefail
verb=${1:?make, boot, exec or stop} dir=$(mkdir -p "${2:?folder}" && cd "$2" && pwd)
shift 2
leader() { pgrep -P "$(cat "$dir/nspawn.pid")" | head -1; }
inside() { nsenter -t "$(leader)" -m -u -i -n -p -C -r -w -- "$@"; }
case $verb in
make)
    mkdir -p "$dir/top" "$dir/root"
    mount -t tmpfs -o mode=755 none "$dir/top"
    mkdir "$dir/top/upper" "$dir/top/work"
    mount -t overlay -o "lowerdir=/,upperdir=$dir/top/upper,workdir=$dir/top/work" overlay "$dir/root"
    # What this machine happens to have installed need not start there.
    for unit in ssh.service radosgw.service postgresql.service ceph.target cron.service apt-daily.timer; do
        ln -sf /dev/null "$dir/root/etc/systemd/system/$unit"
    done
    : >"$dir/root/etc/fstab"
    ;;
boot)
    devices=(--bind=/dev/fuse)
    [ ! -e /dev/autofs ] || devices+=(--bind=/dev/autofs)
    setsid "$(dirname "$0")/../harness/own_mount_table" systemd-nspawn --register=no --keep-unit -q -D "$dir/root" "${devices[@]}" --capability=all --private-network \
        -b systemd.unit=multi-user.target >"$dir/boot.log" 2>&1 </dev/null &
    echo $! >"$dir/nspawn.pid"
    for _ in $(seq 300); do
        case $(inside systemctl is-system-running 2>/dev/null || true) in running | degraded) exit 0 ;; esac
        kill -0 "$(cat "$dir/nspawn.pid")" 2>/dev/null || break
        sleep 0.2
    done
    echo "systemd did not come up; see $dir/boot.log" >&2
    exit 1
    ;;
exec) inside "$@" ;;
stop)
    pid=$(cat "$dir/nspawn.pid" 2>/dev/null || true)
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
        inside systemctl poweroff >/dev/null 2>&1 || true
        for _ in $(seq 300); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
        kill -9 "$pid" 2>/dev/null || true
    fi
    umount "$dir/root" 2>/dev/null || umount -l "$dir/root"
    umount "$dir/top"
    rm -rf "$dir/top" "$dir/root" "$dir/nspawn.pid" "$dir/boot.log"
    ;;
*) echo "usage: machine.sh make | boot | exec | stop DIR [CMD...]" >&2; exit 2 ;;
esac

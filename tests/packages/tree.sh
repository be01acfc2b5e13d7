# shellcheck shell=bash
# A bare Debian 12 in a folder, in which packages are installed and started. For the tests in this folder, which source
# it; they set `top`, the folder with these sources, and `packages`, the folder with the packages.
#
# Packages of another architecture run in qemu-user (tests/cross/emulated), with everything that is in the folder.

own_architecture=$(dpkg --print-architecture)
architecture=$own_architecture
higher=999
started=$SECONDS

fail() {
    printf 'FAILED: %s\n' "$*"
    [[ -s $tree/tmp/decoder.log ]] && tail -n 20 "$tree/tmp/decoder.log"
    exit 1
}
tell() { printf '%4d s  %s\n' $((SECONDS - started)) "$*"; }
skip() {
    echo "Skipped: $*"
    exit 77
}
inside() { chroot "$tree" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

# Everything happens in namespaces of its own; when they end, so do all processes in them. enter ARGUMENTS... starts the
# test anew there, with these arguments.
enter() {
    local package tool
    package=$(compgen -G "$packages/skelmor_*.deb") ||
        { echo "no packages in $packages: packaging/build-packages makes them"; exit 1; }
    architecture=$(dpkg-deb -f "$package" Architecture)
    cache=$top/build/packages-test
    [[ $architecture == "$own_architecture" ]] || cache+=-$architecture
    tree=$cache/tree
    [[ ${INSIDE-} != yes ]] || return 0
    for tool in mmdebstrap unshare setpriv; do
        command -v $tool >/dev/null || skip "this machine has no $tool"
    done
    [[ ${INSIDE-} == emulated || $(id -u) -eq 0 ]] || skip "this needs root"
    if [[ $architecture != "$own_architecture" && ${INSIDE-} != emulated ]]; then
        INSIDE=emulated exec "$top/tests/cross/emulated" "$architecture" "$BASH" "$0" "$@"
    fi
    make_system
    INSIDE=yes exec unshare --mount --pid --fork --kill-child --mount-proc --ipc --net "$BASH" "$0" "$@"
}

# What the packages depend on, without those of ours.
dependencies() {
    local package
    for package in "$packages"/*.deb "$packages"/more/skelmor-{encoder,mqtt}_*.deb; do
        dpkg-deb -f "$package" Depends | tr ',' '\n' | sed 's/^ *//' | { grep -v '^skelmor' || true; }
    done | sort -u
}

# A bare system, then the dependencies in it. Kept until the dependencies change.
make_system() {
    local key sources
    mkdir -p "$cache"
    key=$(dependencies | sha256sum)
    [[ -f $cache/key && $(<"$cache/key") == "$key" ]] && return
    rm -f "$cache/key"
    sources=$("$top/packaging/debian-sources") || skip "there is no Debian to install from"
    # The corrections' indexes of other architectures are sometimes out of step.
    [[ $architecture == "$own_architecture" ]] || sources=$(awk '$3 == "bookworm"' <<<"$sources")
    # Nobody needs the system after a power failure, so dpkg need not wait for the disk.
    mmdebstrap --quiet --variant=minbase --architectures="$architecture" --format=tar --dpkgopt=force-unsafe-io \
        --customize-hook="chroot \"\$1\" apt-get -qq -y --no-install-recommends satisfy \"$(dependencies | paste -sd,)\"" \
        --customize-hook='rm -rf "$1"/var/lib/apt/lists/*' \
        bookworm "$cache/tree.tar" - <<<"$sources" >"$cache/tree.log" 2>&1 || {
        tail -n 20 "$cache/tree.log" >&2
        exit 1
    }
    printf '%s\n' "$key" >"$cache/key"
    tell "made a Debian system for $architecture"
}

make_tree() {
    local device
    rm -rf -- "$tree"
    mkdir "$tree"
    # Nobody may make devices in a user namespace, so those of this machine are used.
    tar -C "$tree" --exclude './dev/*' -xpf "$cache/tree.tar"
    mount --bind "$tree" "$tree"
    mount -t proc proc "$tree/proc"
    for device in full null random tty urandom zero; do
        touch "$tree/dev/$device"
        mount --bind "/dev/$device" "$tree/dev/$device"
    done
    ln -s /proc/self/fd "$tree/dev/fd"
    tell "a bare Debian 12 with $(inside dpkg-query -W -f '.\n' | wc -l) packages for $(inside dpkg --print-architecture)"
}

# What still runs in it ends with the namespaces.
remove_tree() {
    umount --lazy "$tree/proc" "$tree"/dev/{full,null,random,tty,urandom,zero} "$tree"
    rm -rf -- "$tree"
}

# apt COMMAND PATTERN: it finds everything in the tree; there is no network.
apt() {
    inside sh -c "apt-get -qq -y --no-install-recommends $*" >"$tree/tmp/apt.log" 2>&1 || {
        cat "$tree/tmp/apt.log"
        fail "apt-get $*"
    }
}

versions() { inside dpkg-query -W -f '${db:Status-Abbrev} ${Version}\n' 'skelmor*' | grep '^ii' | sort | uniq -c | tr -s ' \n' ' '; }

# start UNIT: starts what the unit starts, as its user. Its own sandbox is not there.
start() {
    local file=$tree/lib/systemd/system/$1.service variables
    mapfile -t variables < <(sed -n 's/^Environment=//p' "$file")
    chroot "$tree" setpriv --reuid decoder --regid decoder --init-groups env -i "${variables[@]}" LIBCOMMON_LOG=stderr \
        "$(sed -n 's/^ExecStart=//p' "$file")" >>"$tree/tmp/decoder.log" 2>&1 &
    echo $! >>"$tree/tmp/started"
}

start_decoder() {
    local _
    ip link set lo up
    start camera-gateway
    start skelmor
    for _ in $(seq 100); do
        inside decoderctl status >/dev/null 2>&1 && return
        sleep 0.1
    done
    fail "the decoder does not answer"
}

frame() { { inside decoderctl status --json 2>/dev/null || true; } | sed -n 's/^ *"number": \([0-9]*\).*/\1/p'; }

# Waits until the frame number grows.
wait_for_moving_picture() {
    local first='' now _
    for _ in $(seq 300); do
        now=$(frame)
        first=${first:-$now}
        [[ -n $now && $now -gt $((first + 10)) ]] && return
        sleep 0.2
    done
    inside decoderctl status || true
    fail "no moving picture within a minute"
}

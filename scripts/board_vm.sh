#!/usr/bin/env bash
# The board in a box: a PowerPC system image (Linux 6.1 from linux-source-6.1,
# BusyBox from Debian's source package, the ppc C library, the installed
# program, the simulated core and tools) booted in qemu-system-ppc on the
# ppce500 machine with an e500mc CPU.
#
#   scripts/board_vm.sh [build]   build what is missing (kept under build/board/)
#   scripts/board_vm.sh boot      build, then boot: the console on this terminal,
#                                 the panel's UART on the socket build/board/panel.sock
#                                 (play it: build/host/bin/tav_panel_emu --device build/board/panel.sock)
#   scripts/board_vm.sh test      build, then run the scenarios (tests/board/)
#
# UARTs: ttyS0 the console (a BusyBox shell), ttyS1 the panel line, linked at
# /dev/ttyPSC3 by the image's start-up. The kernel and BusyBox builds are kept
# in a cache outside the work tree (TAV_BOARD_CACHE, by default
# ~/.cache/tav_board), one entry per set of inputs: the configurations
# (scripts/board/*.config) and the versions of the kernel source, BusyBox and
# the cross compiler. Another clone on the same machine reuses them.
set -Eeuo pipefail
cd "$(dirname "$0")/.."
TOP=$PWD
B=$TOP/build/board
CROSS=powerpc-linux-gnu-
JOBS=${TAV_BOARD_JOBS:-$(($(nproc) + 1))}
CACHE=${TAV_BOARD_CACHE:-${XDG_CACHE_HOME:-${HOME:-$B}/.cache}/tav_board}
mkdir -p "$B"
trap 'echo "board_vm: failed at line $LINENO: $BASH_COMMAND" >&2' ERR

say() { echo "board_vm: $*"; }
die() { echo "board_vm: $*" >&2; exit 1; }
elapsed() { echo "$(($(date +%s) - $1)) s"; }

# --- what the build needs from Debian's archive -----------------------------
SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
apt_or_die() {
    $SUDO apt-get "$@" || die "apt-get $* failed: is Debian's archive reachable? (see the messages above)"
}

# A deb-src twin of every deb entry of the system's sources, for apt-get source.
add_deb_src() {
    local f=/etc/apt/sources.list.d/debian.sources
    say "no deb-src entries: adding the twins of the deb entries"
    if [ -f "$f" ]; then
        sed -n '/^Types: deb$/,/^$/p' "$f" | sed 's/^Types: deb$/Types: deb-src/' |
            $SUDO tee /etc/apt/sources.list.d/tav-deb-src.sources >/dev/null
    elif [ -f /etc/apt/sources.list ]; then
        grep '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
            $SUDO tee /etc/apt/sources.list.d/tav-deb-src.list >/dev/null
    fi
}

install_needs() {
    local need=() pkg
    for pkg in g++-powerpc-linux-gnu qemu-system-ppc linux-source-6.1 dpkg-dev make flex bison bc \
               cpio libelf-dev libssl-dev python3 cmake ninja-build g++; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
    done
    if [ ${#need[@]} -gt 0 ]; then
        say "installing: ${need[*]}"
        apt_or_die update -qq
        DEBIAN_FRONTEND=noninteractive apt_or_die install -y -qq "${need[@]}"
    fi
}

# --- kernel -----------------------------------------------------------------
# Sets every symbol of $2 on top of allnoconfig-style $1 and checks they held.
check_config() {
    local cfg=$1 frag=$2 s bad=0
    for s in $(grep -o '^CONFIG_[A-Z0-9_]*=[^ ]*' "$frag"); do
        grep -qx "$s" "$cfg" || { echo "board_vm: $s did not hold in $cfg" >&2; bad=1; }
    done
    return $bad
}

build_kernel() {
    local src=$B/linux-source-6.1 out=$B/kernel frag=$TOP/scripts/board/kernel.config t=$(date +%s)
    if [ ! -f "$src/Makefile" ]; then
        [ -f /usr/src/linux-source-6.1.tar.xz ] || die "no /usr/src/linux-source-6.1.tar.xz (package linux-source-6.1)"
        rm -rf "$src.part" && mkdir -p "$src.part"
        tar xJf /usr/src/linux-source-6.1.tar.xz -C "$src.part" --strip-components=1
        mv "$src.part" "$src"
        say "kernel sources unpacked in $(elapsed "$t")"
    fi
    mkdir -p "$out"
    local k=(make -s -C "$src" O="$out" ARCH=powerpc CROSS_COMPILE=$CROSS)
    if [ ! -f "$out/.config" ] || [ "$frag" -nt "$out/.config" ]; then
        "${k[@]}" KCONFIG_ALLCONFIG="$frag" allnoconfig
        check_config "$out/.config" "$frag" || die "kernel configuration incomplete"
        rm -f "$out/vmlinux"
    fi
    if [ ! -f "$out/vmlinux" ]; then
        say "building the kernel"
        nice -n 10 "${k[@]}" -j"$JOBS" vmlinux
        say "kernel built in $(elapsed "$t")"
    fi
    cp "$out/vmlinux" "$out/usr/gen_init_cpio" "$1/"
}

# --- BusyBox ----------------------------------------------------------------
fetch_busybox() { (cd "$B" && apt-get source -qq --download-only busybox); }

build_busybox() {
    local src=$B/busybox-src out=$B/busybox frag=$TOP/scripts/board/busybox.config t=$(date +%s)
    if [ ! -f "$src/Makefile" ]; then
        if ! fetch_busybox 2>"$B/apt-source.log"; then
            grep -rqsE '^(Types:.*deb-src|deb-src )' /etc/apt/sources.list /etc/apt/sources.list.d/ || add_deb_src
            apt_or_die update -qq
            fetch_busybox || die "apt-get source busybox failed: is Debian's archive reachable?"
        fi
        rm -rf "$src"
        dpkg-source -x "$(ls "$B"/busybox_*.dsc | tail -1)" "$src" >/dev/null
    fi
    mkdir -p "$out"
    if [ ! -f "$out/.config" ] || [ "$frag" -nt "$out/.config" ]; then
        make -s -C "$src" O="$out" allnoconfig >/dev/null
        local l s
        while read -r l; do
            case $l in CONFIG_*)
                s=${l%%=*}
                sed -i "/^# $s is not set/d; /^$s=/d" "$out/.config"
                echo "$l" >>"$out/.config" ;;
            esac
        done <"$frag"
        { yes "" || true; } | make -s -C "$out" oldconfig >/dev/null
        check_config "$out/.config" "$frag" || die "BusyBox configuration incomplete"
        rm -f "$out/busybox"
    fi
    if [ ! -f "$out/busybox" ]; then
        say "building BusyBox"
        nice -n 10 make -s -C "$out" CROSS_COMPILE=$CROSS -j"$JOBS" busybox 2>"$out/build.log" ||
            { tail -30 "$out/build.log"; die "BusyBox build failed"; }
        say "BusyBox built in $(elapsed "$t")"
    fi
    make -s -C "$out" busybox.links >/dev/null
    cp "$out/busybox" "$out/busybox.links" "$1/"
}

# --- the programs -----------------------------------------------------------
build_programs() {
    cmake --preset ppc >/dev/null
    cmake --build --preset ppc --target tav_keyboard tav_matrix_core tav_matrix_ctl tav_matrix
    rm -rf "$B/stage"
    DESTDIR=$B/stage cmake --install build/ppc --strip >/dev/null
    cmake --preset host >/dev/null
    cmake --build --preset host --target tav_panel_emu
}

# --- root file system -------------------------------------------------------
# The shared libraries a ppc ELF file needs, found in the cross C library.
needed_libs() {
    { ${CROSS}readelf -d "$@" 2>/dev/null || true; } | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort -u
}

build_rootfs() {
    local r=$B/rootfs sysroot=/usr/powerpc-linux-gnu f lib
    rm -rf "$r"
    mkdir -p "$r"/{bin,sbin,usr/bin,usr/sbin,usr/lib,lib,etc/init.d,proc,sys,dev,tmp,root,var/run,var/log,nandflash/config}
    install -m 755 "$C/busybox" "$r/bin/busybox"
    while read -r f; do
        [ -e "$r$f" ] || ln -s /bin/busybox "$r$f"
    done <"$C/busybox.links"
    ln -sf bin/busybox "$r/init"
    cp -a "$B/stage/." "$r/"
    for f in tav_matrix_core tav_matrix_ctl; do
        ${CROSS}strip -o "$r/usr/bin/$f" "build/ppc/bin/$f"
    done
    ${CROSS}strip -o "$r/usr/lib/libtav_matrix.so" build/ppc/lib/libtav_matrix.so
    install -m 755 sim/tools/* "$r/usr/bin/"
    install -m 755 scripts/board/rcS "$r/etc/init.d/rcS"
    install -m 644 scripts/board/inittab "$r/etc/inittab"
    # The C library: the closure of what the programs and BusyBox need.
    local todo seen=" "
    todo=$(needed_libs "$r/bin/busybox" "$r"/usr/bin/tav_* "$r/usr/lib/libtav_matrix.so")
    todo="$todo ld.so.1"
    while [ -n "${todo// /}" ]; do
        local next=""
        for lib in $todo; do
            [ "$lib" = libtav_matrix.so ] && continue
            case $seen in *" $lib "*) continue ;; esac
            seen="$seen$lib "
            [ -e "$sysroot/lib/$lib" ] || die "no $sysroot/lib/$lib"
            cp -L "$sysroot/lib/$lib" "$r/lib/$lib"
            next="$next $(needed_libs "$r/lib/$lib")"
        done
        todo=$next
    done
    # Everything owned by root; the console node that the kernel opens
    # before devtmpfs is mounted.
    (cd "$r" && find . -mindepth 1 -printf '%y %m %P %l\n' | sort -k3) | awk -v r="$r" '
        $1 == "d" { print "dir /" $3, $2, 0, 0 }
        $1 == "l" { print "slink /" $3, $4, 777, 0, 0 }
        $1 == "f" { print "file /" $3, r "/" $3, $2, 0, 0 }
        END { print "nod /dev/console 600 0 0 c 5 1" }' >"$B/rootfs.list"
    "$C/gen_init_cpio" "$B/rootfs.list" >"$B/rootfs.cpio"
    say "root file system: $(du -sk "$r" | cut -f1) kB, libraries:$seen"
}

# The cache entry for the current inputs: the kernel and BusyBox, built when
# missing (into a temporary entry, renamed when complete).
image_inputs() {
    cat scripts/board/kernel.config scripts/board/busybox.config
    dpkg-query -W -f='${Package} ${Version}\n' linux-source-6.1 gcc-powerpc-linux-gnu libc6-dev-powerpc-cross
    apt-cache policy busybox | sed -n 's/^ *Candidate: */busybox /p'
}

build_all() {
    local t=$(date +%s)
    install_needs
    C=$CACHE/$(image_inputs | sha256sum | cut -c1-16)
    if [ -f "$C/vmlinux" ]; then
        say "kernel and BusyBox from the cache $C"
    else
        local part=$C.part.$$
        rm -rf "$part" && mkdir -p "$part"
        build_kernel "$part"
        build_busybox "$part"
        mv -T "$part" "$C" 2>/dev/null || rm -rf "$part" # another build may have been first
    fi
    build_programs
    build_rootfs
    say "image ready in $(elapsed "$t"): $C/vmlinux, $B/rootfs.cpio"
}

qemu_cmd() {
    echo qemu-system-ppc -M ppce500 -cpu e500mc -m 256M -display none -monitor none \
        -kernel "$C/vmlinux" -initrd "$B/rootfs.cpio" -append "console=ttyS0"
}

case ${1:-build} in
build) build_all ;;
boot)
    build_all
    rm -f "$B/panel.sock"
    say "the panel's UART: build/host/bin/tav_panel_emu --device $B/panel.sock; quit: Ctrl-A x"
    exec $(qemu_cmd) -serial mon:stdio \
        -chardev socket,id=panel,path="$B/panel.sock",server=on,wait=off -serial chardev:panel
    ;;
test)
    build_all
    exec python3 tests/board/board_scenarios.py --build "$B" --emu build/host/bin/tav_panel_emu -- $(qemu_cmd)
    ;;
*) sed -n '2,15p' "$0"; exit 2 ;;
esac

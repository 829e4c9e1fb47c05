# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154,SC2034 # variables shared with run
# Makes what the lab's machine boots: the kernel that matches the installed
# headers, and an initramfs of three concatenated archives - tools (cached),
# products of one build directory (cached there), and this run's command and
# scripts. Sourced by run, which provides lab, top, lab_say and lab_die.

# Programs every guest has; the second list only if the host has them. The
# launchers (env, timeout, xargs ...) are the host's because busybox's prefer
# its own applets to what PATH says: "timeout 5 ip" would run the wrong ip.
lab_tools=(busybox bash dash ip bridge vconfig kmod jq ldd env timeout nice nohup stdbuf chroot xargs find
    nsenter unshare setsid setpriv taskset flock)
lab_optional_tools=(strace tcpdump tc ss ethtool)
lab_modules=(8021q garp mrp llc stp bridge dummy vrf veth nlmon
    virtio virtio_ring virtio_pci virtio_pci_legacy_dev virtio_pci_modern_dev virtio_console)

lab_find_tool() { PATH=$PATH:/usr/sbin:/sbin type -P "$1"; }

# Sets lab_abi (the kernel release) and lab_version (its package's version).
lab_kernel_version() {
    local meta=linux-headers-cloud-amd64 depends
    depends=$(dpkg-query -W -f '${Depends}' "$meta" 2>/dev/null) || lab_die "package $meta is not installed"
    [[ $depends =~ linux-headers-([0-9][^ ,]*-cloud-amd64) ]] || lab_die "$meta names no headers: $depends"
    lab_abi=${BASH_REMATCH[1]}
    lab_headers=/usr/src/linux-headers-$lab_abi
    [[ -d $lab_headers ]] || lab_die "$lab_headers is missing: package linux-headers-$lab_abi is not installed"
    # shellcheck disable=SC2016 # dpkg's placeholder, not the shell's
    lab_version=$(dpkg-query -W -f '${Version}' "linux-headers-$lab_abi")
}

lab_download_kernel() { # DIR: the package ends up in there
    local package=linux-image-$lab_abi
    local -a get=(apt-get -q -o APT::Sandbox::User=root download "$package=$lab_version")
    (cd -- "$1" && "${get[@]}" >apt.log 2>&1) && return
    lab_say "refreshing the package lists: $package $lab_version is not in them"
    apt-get -q update >"$1/apt.log" 2>&1 || true
    (cd -- "$1" && "${get[@]}" >>apt.log 2>&1) && return
    cat -- "$1/apt.log" >&2
    lab_die "$package $lab_version, the kernel of the installed headers, cannot be downloaded (any more);" \
        "upgrade linux-headers-cloud-amd64 so that headers and image match again"
}

# The unpacked parts of the kernel package: vmlinuz and modules/*.ko.
lab_fetch_kernel() { # KERNEL_DIR
    local work file
    [[ -d $1 ]] && return
    work=$(mktemp -d "$1.tmp.XXXXXX")
    lab_say "fetching kernel $lab_abi $lab_version"
    lab_download_kernel "$work"
    dpkg-deb -x "$work"/*.deb "$work/package"
    mkdir "$work/kernel" "$work/kernel/modules"
    cp "$work/package/boot/vmlinuz-$lab_abi" "$work/kernel/vmlinuz"
    for file in "${lab_modules[@]}"; do
        find "$work/package/lib/modules/$lab_abi/kernel" -name "$file.ko" -exec cp -t "$work/kernel/modules" {} +
        [[ -f $work/kernel/modules/$file.ko ]] || lab_die "the kernel package has no module $file"
    done
    cp -t "$work/kernel/modules" "$work/package/lib/modules/$lab_abi"/modules.{builtin,builtin.modinfo,order}
    mv -T -- "$work/kernel" "$1"
    rm -rf -- "$work"
}

lab_pack() { # TREE ARCHIVE: never a half-written archive under that name
    (cd -- "$1" && find . -mindepth 1 -print0 | sort -z |
        cpio --quiet --null --create --format=newc --owner=0:0) >"$2.new"
    mv -- "$2.new" "$2"
}

# The guest has Debian's merged /usr; its directories' links must stay links,
# for a directory entry in a later archive would replace them.
lab_install_libraries() { # TREE EXCEPT FILE...: what FILEs load, but nothing from below EXCEPT
    local tree=$1 except=$2 library directory
    shift 2
    while read -r library; do
        [[ $library != "$except"/* ]] || continue
        directory=$(realpath -- "$(dirname -- "$library")")
        [[ -e $tree$directory/${library##*/} ]] ||
            install -D -m 755 -- "$library" "$tree$directory/${library##*/}"
    done < <(ldd -- "$@" 2>/dev/null | grep -oE '(=> )?/[^ :]+ \(0x' | grep -oE '/[^ ]+' | sort -u)
}

lab_pack_base() { # ARCHIVE TOOL_PATH...
    local archive=$1 tree name path directory applet
    shift
    tree=$(mktemp -d "$archive.tmp.XXXXXX")
    mkdir -p "$tree"/usr/{bin,sbin,lib,lib64} "$tree"/{dev,proc,sys,run,tmp,root,etc,var,opt/ybnet}
    for name in bin sbin lib lib64; do
        ln -s "usr/$name" "$tree/$name"
    done
    ln -s ../run "$tree/var/run"
    for path; do
        name=$(basename -- "$path")
        directory=$(realpath -- "$(dirname -- "$path")")
        install -m 755 -- "$path" "$tree/usr/${directory##*/}/$name"
    done
    lab_install_libraries "$tree" /opt/ybnet "$@"
    # The C library loads this one by itself when a thread is cancelled.
    install -m 755 /usr/lib/x86_64-linux-gnu/libgcc_s.so.1 "$tree/usr/lib/x86_64-linux-gnu/"
    ln -s ../sbin/ip "$tree/usr/bin/ip"
    ln -s dash "$tree/usr/bin/sh"
    for name in modprobe insmod rmmod lsmod modinfo depmod; do
        ln -s ../bin/kmod "$tree/usr/sbin/$name"
    done
    while read -r applet; do
        [[ -e $tree/usr/bin/$applet || -e $tree/usr/sbin/$applet ]] || ln -s busybox "$tree/usr/bin/$applet"
    done < <("$(lab_find_tool busybox)" --list)
    printf 'root:x:0:0:root:/root:/bin/bash\nnobody:x:65534:65534:nobody:/:/bin/false\n' >"$tree/etc/passwd"
    printf 'root:x:0:\nnogroup:x:65534:\n' >"$tree/etc/group"
    [[ ! -d /etc/iproute2 ]] || cp -r /etc/iproute2 "$tree/etc/"
    lab_pack "$tree" "$archive"
    rm -rf -- "$tree"
}

lab_fingerprint() { # FILE...: changes with the content of image.sh and with any FILE
    { sha256sum <"$lab/image.sh"; (($# == 0)) || stat -L -c '%n %s %y' -- "$@"; } | sha256sum | cut -c 1-16
}

# Prints the archive of what never changes between runs.
lab_base_archive() { # CACHE
    local tool path archive
    local -a paths=()
    for tool in "${lab_tools[@]}"; do
        path=$(lab_find_tool "$tool") || lab_die "the host has no $tool to put into the guest"
        paths+=("$path")
    done
    for tool in "${lab_optional_tools[@]}"; do
        path=$(lab_find_tool "$tool") && paths+=("$path")
    done
    archive=$1/base-$(lab_fingerprint "${paths[@]}").cpio
    if [[ ! -f $archive ]]; then
        rm -f -- "$1"/base-*.cpio
        lab_pack_base "$archive" "${paths[@]}"
    fi
    printf '%s\n' "$archive"
}

lab_build_driver() { # BUILD: driver_sim/yb_core_sim.ko in there, if older than its sources
    local module=$1/driver_sim/yb_core_sim.ko log=$1/driver_sim.log
    local stamp=$1/driver_sim/kernel
    if [[ -f $module && $(cat -- "$stamp" 2>/dev/null) == "$lab_abi $lab_version" &&
        -z $(find "$top/platform/driver_sim" -type f -newer "$module" -print -quit) ]]; then
        return
    fi
    if ! make -C "$top/platform/driver_sim" KDIR="$lab_headers" OUT="$1/driver_sim" >"$log" 2>&1; then
        cat -- "$log" >&2
        lab_die "the simulated driver does not build"
    fi
    # make leaves a module alone that needs no relinking; it is up to date all the same.
    touch -- "$module"
    printf '%s\n' "$lab_abi $lab_version" >"$stamp"
    rm -f -- "$log"
}

lab_pack_products() { # BUILD KERNEL_DIR ARCHIVE
    local tree file
    local modules=usr/lib/modules/$lab_abi
    local -a elf=()
    tree=$(mktemp -d "$3.tmp.XXXXXX")
    mkdir -p "$tree"/opt/ybnet/{bin,lib} "$tree/$modules/extra"
    [[ ! -d $1/bin ]] || find "$1/bin" -maxdepth 1 \( -type f -o -type l \) -executable -exec cp -a -t "$tree/opt/ybnet/bin" {} +
    [[ ! -d $1/lib ]] || find "$1/lib" -maxdepth 1 -name '*.so*' -exec cp -a -t "$tree/opt/ybnet/lib" {} +
    while IFS= read -r -d '' file; do
        # Debug information is most of a build's bytes and of no use in the guest.
        strip --strip-debug -- "$file" 2>/dev/null && elf+=("$file")
    done < <(find "$tree/opt" -type f -print0)
    ((${#elf[@]} == 0)) || LD_LIBRARY_PATH=$1/lib lab_install_libraries "$tree" "$1" "${elf[@]}"
    cp -t "$tree/$modules" "$2"/modules/*
    cp -t "$tree/$modules/extra" "$1/driver_sim/yb_core_sim.ko"
    "$(lab_find_tool depmod)" -b "$tree/usr" "$lab_abi"
    lab_pack "$tree" "$3"
    rm -rf -- "$tree"
}

# Prints the archive of what the build directory made, driver included.
lab_products_archive() { # BUILD KERNEL_DIR
    local archive
    local -a files
    lab_build_driver "$1"
    mapfile -d '' -t files < <(find "$1/bin" "$1/lib" "$1/driver_sim/yb_core_sim.ko" -maxdepth 1 \
        \( -type f -o -type l \) -print0 2>/dev/null | sort -z)
    archive=$1/lab/products-$(lab_fingerprint "${files[@]}" "$2").cpio
    if [[ ! -f $archive ]]; then
        rm -f -- "$1"/lab/products-*.cpio
        lab_pack_products "$1" "$2" "$archive"
    fi
    printf '%s\n' "$archive"
}

lab_pack_command() { # RUN_DIR ARG...: the command word by word, and the repository's scripts
    local run_dir=$1 tree=$1/tree
    shift
    mkdir -p "$tree"/opt/ybnet/{lab,tests} "$tree/etc/ybnet-lab"
    install -m 755 "$lab/guest/init" "$tree/init"
    cp -r "$lab/guest/." "$tree/opt/ybnet/lab"
    [[ ! -d $top/tests/lab ]] || cp -r "$top/tests/lab/." "$tree/opt/ybnet/tests"
    printf '%s\0' "$@" >"$tree/etc/ybnet-lab/argv"
    lab_pack "$tree" "$run_dir/command.cpio"
    rm -rf -- "$tree"
}

# Leaves RUN_DIR/initramfs and sets lab_kernel_image. Runs may come two at a
# time: caches are written and read under a lock.
lab_image() { # BUILD RUN_DIR ARG...
    local build=$1 run_dir=$2 cache kernel base products lock
    shift 2
    lab_kernel_version
    cache=${YBNET_LAB_CACHE:-${XDG_CACHE_HOME:-${HOME:-$build}/.cache}/ybnet-lab}
    kernel=$cache/kernel-$lab_abi-$lab_version
    lab_kernel_image=$kernel/vmlinuz
    mkdir -p -- "$cache" "$build/lab"
    lab_pack_command "$run_dir" "$@"
    exec {lock}>"$cache/lock"
    flock "$lock"
    rm -rf -- "$cache"/*.tmp.* "$build"/lab/*.tmp.* # of a run that was killed: nobody else is in here
    lab_fetch_kernel "$kernel"
    base=$(lab_base_archive "$cache")
    # Two runs of one build directory share this lock too, so products need none of their own.
    products=$(lab_products_archive "$build" "$kernel")
    cat -- "$base" "$products" "$run_dir/command.cpio" >"$run_dir/initramfs"
    exec {lock}>&-
}

#!/bin/bash
# image.sh ARCHITECTURE FOLDER: a Debian 12 for the emulator, made of packages from
# this machine's own sources: FOLDER/root.img, and its kernel and first file system
# beside it. One that was made by the same recipe is kept.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
architecture=$1 folder=$2
recipe=$(cat "$here/image.sh" "$here/agent.py" | sha256sum)
[ "$(cat "$folder/recipe" 2>/dev/null)" != "$recipe" ] || exit 0

packages=(systemd-sysv udev dbus kmod "linux-image-$architecture" initramfs-tools e2fsprogs procps util-linux iproute2
    init-system-helpers python3 curl mdadm dmsetup smartmontools
    libcurl4 libcurl3-gnutls libmicrohttpd12 libjson-c5 libjsoncpp25 libinih1) # what ours depends on
sources=$(cat /etc/apt/sources.list.d/*.sources 2>/dev/null || cat /etc/apt/sources.list{,.d/*.list})
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$folder"

# Packages of another architecture are set up by its programs. The kernel starts
# them by the emulator where that was registered, at the boot or here.
if [ "$architecture" != "$(dpkg --print-architecture)" ] && ! arch-test "$architecture" >/dev/null; then
    formats=/proc/sys/fs/binfmt_misc
    [ -e $formats/register ] || mount -t binfmt_misc binfmt_misc $formats
    update-binfmts --enable "qemu-$([ "$architecture" = arm64 ] && echo aarch64 || echo x86_64)"
fi

# The first file system holds what it takes to find the root, and no more.
printf '%s\n' "$sources" | mmdebstrap --quiet --variant=minbase --architectures="$architecture" \
    --include="$(IFS=,; echo "${packages[*]}")" \
    --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
    --dpkgopt='path-exclude=/usr/share/locale/*' \
    --essential-hook='mkdir -p "$1/etc/initramfs-tools/conf.d"' \
    --essential-hook='printf "MODULES=list\nCOMPRESS=gzip\n" >"$1/etc/initramfs-tools/conf.d/vm"' \
    --essential-hook='printf "%s\n" virtio_pci virtio_blk ext4 >"$1/etc/initramfs-tools/modules"' \
    bookworm "$tree/root" -

root=$tree/root
install -D -m 755 "$here/agent.py" "$root/usr/local/sbin/vm_agent"
cat >"$root/etc/systemd/system/vm_agent.service" <<'END'
[Unit]
After=multi-user.target
[Service]
ExecStart=/usr/local/sbin/vm_agent
KillMode=process
[Install]
WantedBy=default.target
END
systemctl --root="$root" --quiet enable vm_agent.service
systemctl --root="$root" --quiet mask apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer e2scrub_all.timer \
    fstrim.timer mdadm-shutdown.service mdmonitor.service mdcheck_start.timer mdcheck_continue.timer \
    systemd-timesyncd.service smartmontools.service systemd-networkd-wait-online.service
echo 'LABEL=root / ext4 defaults 0 0' >"$root/etc/fstab"
echo recorder >"$root/etc/hostname"
mkdir -p "$root/etc/systemd/journald.conf.d"
printf '[Journal]\nStorage=volatile\nRateLimitBurst=0\n' >"$root/etc/systemd/journald.conf.d/vm.conf"

cp "$root"/boot/vmlinuz-* "$folder/vmlinuz"
cp "$root"/boot/initrd.img-* "$folder/initrd.img"
rm -f "$root"/etc/dpkg/dpkg.cfg.d/99mmdebstrap # what comes later is installed whole
rm -rf "$root"/boot/* "$root"/var/cache/apt "$root"/var/lib/apt/lists/*
rm -f "$folder/root.img" "$folder/recipe"
mke2fs -q -t ext4 -L root -d "$root" "$folder/root.img" 3G >/dev/null
printf '%s\n' "$recipe" >"$folder/recipe"

#!/bin/bash
# make_root.sh FOLDER: prepares a tree that stands for "/" of the appliance (see
# VELOMOND_ROOT), with this machine's /proc, /sys and /dev in it. A tree that is
# there already keeps its files.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$1

mkdir -p "$root"/{Vtmp,Vdbglog,tmp,var/lock,usr/bin,usr/sbin,usr/local/cmsbin,etc/reverseproxy/extra,tarn/etc/config} \
    "$root"/share/{System/database,Recordings}
for one in proc sys dev; do
    [ -e "$root/$one" ] || ln -s "/$one" "$root/$one"
done
cp -R --no-clobber "$here"/example_root/. "$root"

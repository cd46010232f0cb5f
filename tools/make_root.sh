#!/bin/bash
# make_root.sh FOLDER: prepares a tree to replace "/" of the appliance (see VELOMOND_ROOT), with this machine's /proc,
# /sys and /dev in it, the example configuration, and stand-ins for the appliance's tools. Files of an existing tree are
# kept.
set -euo pipefail
packaging=$(cd "$(dirname "${BASH_SOURCE[0]}")/../packaging" && pwd)
root=$1

mkdir -p "$root"/{Vtmp,Vdbglog,tmp,var/lock,var/log,usr/bin,usr/sbin,usr/local/cmsbin,tarn/etc/config} \
    "$root"/share/{System/database,Recordings}
for one in proc sys dev; do
    [ -e "$root/$one" ] || ln -s "/$one" "$root/$one"
done
cp -R --no-clobber "$packaging"/examples/. "$root"
for tool in usr/bin/ostra_log_tool usr/bin/vcmd usr/local/cmsbin/cfg_bak_tool usr/sbin/apache2; do
    cp --no-clobber "$packaging"/standins/appliance_tool "$root/$tool"
done
# With this machine's tools the figures are real.
for tool in usr/sbin/smartctl usr/sbin/sysctl; do
    [ -e "$root/$tool" ] || [ ! -e "/$tool" ] || ln -s "/$tool" "$root/$tool"
done
: >>"$root/var/.Vnvrd_start_ok" # the recording daemon has started

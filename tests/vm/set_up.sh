#!/bin/bash
# Inside the machine: two volumes, a mapped cache device, the rest of the appliance,
# and its configuration. From the next boot on.
set -euo pipefail
payload=$1

mdadm --create /dev/md/sys --run --quiet --level=1 --raid-devices=2 --assume-clean --bitmap=internal /dev/sda /dev/sdb
mdadm --detail --scan >>/etc/mdadm/mdadm.conf
mkfs.ext4 -q -L system /dev/md/sys
mkfs.ext4 -q -L recordings /dev/nvme0n1
mkdir -p /share/{System,Recordings} /opt /usr/local/cmsbin
printf 'LABEL=%s /share/%s ext4 defaults,nofail 0 0\n' system System recordings Recordings >>/etc/fstab
mount -a
mkdir -p /share/System/database

cp -R /usr/share/doc/velomond/examples/. /
sed -i 's/^OSTRAPRO_IND_VOL.*/OSTRAPRO_IND_VOL = 2/' /tarn/etc/config/OstraPro.conf
touch /var/.Vnvrd_start_ok
for tool in /usr/bin/{ostra_log_tool,vcmd} /usr/local/cmsbin/cfg_bak_tool /usr/sbin/apache2; do
    cp /usr/share/velomond/standins/appliance_tool "$tool"
done

cp -R "$payload/appliance_sim" /opt
cat >/etc/systemd/system/appliance_sim.service <<'END'
[Unit]
Before=velomond.service
[Service]
ExecStartPre=/usr/sbin/dmsetup create cachedev1 --table '0 2048 zero'
ExecStart=/usr/bin/python3 /opt/appliance_sim/appliance_sim.py --quiet --state /opt/appliance_sim/state --journal /var/log/sim.jsonl
[Install]
WantedBy=multi-user.target
END
systemctl --quiet enable appliance_sim.service

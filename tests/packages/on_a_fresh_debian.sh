#!/usr/bin/env bash
# Runs on a fresh minimal Debian, in a folder with the packages: installs, mounts from fstab, upgrades while mounted,
# builds a helper with the kit, purges. Says "done" at its end.
set -euxo pipefail
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
everything() { find / -xdev -name '*kemvi*' -not -path '/root/*' -not -path '/var/lib/apt/*' -not -path '/proc/*' | sort; }

apt-get update -q
[ -z "$(everything)" ]
apt-get install -y -q --no-install-recommends ./kemvi_*.deb
kemvi --version
zcat /usr/share/man/man1/kemvi{,-store}.1.gz /usr/share/man/man8/mount.{,fuse.}kemvi.8.gz >/dev/null

# From fstab, as an administrator does it.
mkdir -p /srv/tree /mnt/tree
echo hello >/srv/tree/hello.txt
kemvi init /srv/tree
kemvi check /srv/tree
echo '/srv/tree /mnt/tree kemvi allow_other 0 0' >>/etc/fstab
mount -a
[ "$(cat /mnt/tree/hello.txt)" = hello ]

# An upgrade leaves the mount alone, and an open file of it.
exec 5>/mnt/tree/open.txt
apt-get install -y -q ./next.deb
[ "$(dpkg-query -W -f='${Version}' kemvi)" = 99 ]
echo written >&5
exec 5>&-
[ "$(cat /srv/tree/open.txt)" = written ]
kemvi status /mnt/tree
umount /mnt/tree
mount /mnt/tree
[ "$(cat /mnt/tree/hello.txt)" = hello ]
umount /mnt/tree

# Back to the version that the kits belong to, and a helper in C++ made with what is installed.
apt-get install -y -q --no-install-recommends --allow-downgrades ./kemvi_*.deb ./kemvi-dev_*.deb cmake g++ make
cp -r /usr/share/doc/kemvi-dev/examples/cpp /root/example
cmake -S /root/example -B /root/example/build
cmake --build /root/example/build
mkdir /srv/own
kemvi init /srv/own --helper /root/example/build/kemvi-folder
kemvi check /srv/own

apt-get purge -y -q kemvi kemvi-dev
rm -r /srv/tree /srv/own /mnt/tree
left=$(everything)
[ -z "$left" ]
echo "done"

#!/usr/bin/env bash
# A fresh minimal Debian 12, as a new user's machine would be: nothing installed but apt.
# Needs root, mmdebstrap and systemd-container from Debian.
#   fresh-debian.sh FOLDER DIR CMD...   copies the folder to /root/NAME inside, runs CMD there; its status is CMD's.
#                                       DIR keeps the base system (some 200 MB, 20 s to make); each call starts from it anew.
# /dev/fuse is there; the network is the machine's, so that packages can be installed.
set -euo pipefail
folder=$(cd "${1:?folder}" && pwd) dir=$(mkdir -p "${2:?where the system is kept}" && cd "$2" && pwd)
shift 2
if [ ! -s "$dir/base.tar" ]; then
    options=()
    for file in /etc/apt/apt.conf.d/*; do
        if grep -q '^Acquire' "$file" 2>/dev/null; then options+=("--aptopt=$file"); fi
    done
    mmdebstrap --quiet --format=tar --variant=apt --include=ca-certificates "${options[@]}" bookworm "$dir/base.tar.new" \
        /etc/apt/sources.list.d/debian.sources
    mv "$dir/base.tar.new" "$dir/base.tar"
fi
root=$(mktemp -d "$dir/root.XXXXXX")
trap 'rm -rf --one-file-system "$root"' EXIT
tar -C "$root" -xf "$dir/base.tar"
name=$(basename "$folder")
cp -a "$folder" "$root/root/$name"
systemd-nspawn --register=no --keep-unit -q -D "$root" --bind=/dev/fuse --capability=all --resolv-conf=bind-host --timezone=off \
    --chdir="/root/$name" "$@" </dev/null

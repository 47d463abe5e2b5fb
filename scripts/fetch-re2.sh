#!/usr/bin/env bash
# Brings the source of the regular expression engine that the library links in
# (position-independent, hidden) into .deps/: Debian's source package, checked
# against its known digest. Nothing happens when it is already there.
set -euo pipefail
cd "$(dirname "$0")/.."
version=20220601+dfsg
folder=.deps/re2-2022-06-01
digest=3bc61251da3b0b97be40a8a127818c517c62516e4eda11fc901d29496663df54
[[ -f $folder/CMakeLists.txt ]] && exit 0

mkdir -p .deps
download=$(mktemp -d)
trap 'rm -rf "$download"' EXIT
list=$download/sources.list
# The source package comes from the same archive as the machine's packages.
suite=$(. /etc/os-release && echo "${VERSION_CODENAME:-bookworm}")
echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian $suite main" >"$list"
apt-get update -qq -o Dir::Etc::sourcelist="$list" -o Dir::Etc::sourceparts=- -o APT::Get::List-Cleanup=0
(cd "$download" && apt-get source --download-only -qq -o Dir::Etc::sourcelist="$list" -o Dir::Etc::sourceparts=- \
    "re2=$(apt-cache -o Dir::Etc::sourcelist="$list" -o Dir::Etc::sourceparts=- showsrc re2 |
           sed -n 's/^Version: //p' | grep "^$version" | head -1)" 2>/dev/null)
echo "$digest  $download/re2_$version.orig.tar.xz" | sha256sum --check --quiet
tar -xf "$download/re2_$version.orig.tar.xz" -C "$download"
source=$download/re2-2022-06-01

# The generated tables are not in Debian's source: they are made as Debian's
# build makes them, from the machine's Unicode data.
[[ -f /usr/share/unicode/UnicodeData.txt ]] || "$(dirname "$0")"/install-missing.sh unicode-data
command -v perl >/dev/null || "$(dirname "$0")"/install-missing.sh perl
sed -i -e 's|^from six.moves import urllib$|import urllib.request|' \
    -e 's|^_UNICODE_DIR = .*|_UNICODE_DIR = "/usr/share/unicode"|' "$source/re2/unicode.py"
(cd "$source" && perl re2/make_perl_groups.pl >re2/perl_groups.cc &&
    python3 re2/make_unicode_casefold.py >re2/unicode_casefold.cc &&
    python3 re2/make_unicode_groups.py >re2/unicode_groups.cc)
mv "$source" "$folder"

#!/usr/bin/env bash
# Looks into the built .deb: the program is in it, and every link of its
# resource folder points to a file of a package it depends on (so the links
# resolve once the package is installed).
#
#   check_package.sh <package.deb>
set -euo pipefail
deb=$1
fail() { echo "FAIL: $*" >&2; exit 1; }

contents=$(dpkg-deb --contents "$deb")
grep -q ' \./usr/bin/quillon-server$' <<<"$contents" || fail "$deb holds no usr/bin/quillon-server"
depends=$(dpkg-deb --field "$deb" Depends)
# Package names only, without versions or alternatives' bars.
names=" $(sed -e 's/([^)]*)//g' -e 's/[,|]/ /g' <<<"$depends" | tr -s ' ') "

links=0
while read -r target; do
  owner=$(dpkg-query --search "$target" 2>/dev/null | head -n 1 | cut -d: -f1) \
    || fail "no installed package owns $target (a link of the resource folder)"
  [[ $names == *" $owner "* ]] || fail "$target belongs to $owner, which is not in Depends: $depends"
  links=$((links + 1))
done < <(sed -n 's#.* \./usr/share/quillon-server/[^ ]* -> \(/.*\)$#\1#p' <<<"$contents")
((links > 0)) || fail "no links in the resource folder"
echo "$deb: $links links, each from a package in Depends"

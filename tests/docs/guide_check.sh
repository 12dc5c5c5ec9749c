#!/usr/bin/env bash
# The guide and the README show pictures that exist, and every key the guide names
# (<kbd>KEY</kbd>) is a key of the README's key table.
# Usage: bash guide_check.sh <source directory>
cd "$1" || exit 1
status=0
for doc in docs/guide.md README.md; do
    for img in $(grep -o '!\[[^]]*\]([^)]*)' "$doc" | sed 's/.*(\(.*\))/\1/'); do
        [ -f "$(dirname "$doc")/$img" ] || { echo "$doc: missing picture $img"; status=1; }
    done
done
# Keys of the table: its first column, split at commas and slashes, notes in brackets dropped.
keys=$(sed -n '/^## Keys/,/^## /p' README.md | grep '^| ' | grep -v -e '^| Key |' -e '^|--' | cut -d'|' -f2 |
       sed 's/([^)]*)//g; s/[,\/]/\n/g' | sed 's/^ *//; s/ *$//' | grep .)
[ -n "$keys" ] || { echo "README.md: no key table"; exit 1; }
for key in $(grep -o '<kbd>[^<]*</kbd>' docs/guide.md | sed 's/<[^>]*>//g' | sort -u); do
    grep -qxF -- "$key" <<< "$keys" || { echo "docs/guide.md: <kbd>$key</kbd> is not in the key table"; status=1; }
done
exit $status

#!/usr/bin/env bash
# The guide and the README show pictures that exist, every key the guide names (<kbd>KEY</kbd>)
# is a key of the README's key table, every experiment's command line has the same setup as
# its link, and every setup the guide gives is one the program accepts.
# Usage: bash guide_check.sh <source directory>
# FENTRA_SETUP_CHECK names a program that takes one setup string and exits 0 when it is valid;
# without it the setups are only compared with their links.
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

# Setups: `fentra ... --setup '...'` on the desktop and `#...` links for the browser. A line
# that gives both must give the same setup.
setups=$(grep -o "fentra [^\`]*--setup '[^']*'" docs/guide.md | sed "s/.*--setup '\([^']*\)'/\1/")
links=$(grep -o '`#[^`]*`' docs/guide.md | sed 's/^`#//; s/`$//')
[ -n "$setups" ] || { echo "docs/guide.md: no setup strings"; status=1; }
while IFS= read -r line; do
    s=$(grep -o "\-\-setup '[^']*'" <<< "$line" | sed "s/--setup '\(.*\)'/\1/")
    l=$(grep -o '`#[^`]*`' <<< "$line" | sed 's/^`#//; s/`$//')
    [ -n "$s" ] && [ -n "$l" ] && [ "$s" != "$l" ] &&
        { echo "docs/guide.md: setup '$s' and its link '#$l' differ"; status=1; }
done < <(grep -- "--setup '" docs/guide.md)
if [ -z "$FENTRA_SETUP_CHECK" ]; then
    echo "guide_check: FENTRA_SETUP_CHECK not set, setup strings not parsed"
else
    for s in $(printf '%s\n%s\n' "$setups" "$links" | grep . | sort -u); do
        $FENTRA_SETUP_CHECK "$s" > /dev/null 2>&1 ||
            { echo "docs/guide.md: setup '$s' is not accepted by $FENTRA_SETUP_CHECK"; status=1; }
    done
fi
exit $status

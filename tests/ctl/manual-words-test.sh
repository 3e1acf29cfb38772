#!/usr/bin/env bash
# manual-words-test.sh PAGE RECEIVER-CTL: an entry of the page begins with each word that a command begins with, and
# names each second one beside it.
set -euo pipefail
# The line behind each .TP, its font changes, quotes and commas blanked.
entries=$(awk 'tagged { print; tagged = 0 } /^\.TP/ { tagged = 1 }' "$1" |
    sed 's/^\.[BIR]* / /; s/\\-/-/g; s/\\f[BRI]/ /g; s/[",|]/ /g; s/$/ /')
missing=0 count=0
# need WORD SECOND: both in one entry.
need() {
    if ! grep -F -- " $1 " <<<"$entries" | grep -F -- " $2 " >/dev/null; then
        echo "no entry of the page: $1 $2"
        missing=1
    fi
}
words=$("$2" --complete)
for word in $words; do
    need "$word" "$word"
    count=$((count + 1))
    seconds=$("$2" --complete "$word")
    for second in $seconds; do
        case $second in
            # Values, of which the page has examples.
            [0-9+-]* | auto | none | art | sunny | cloudy | incandescent | neon | black-white | vivid | d-* | portrait | \
                beach | dream | classic | nostalgia | raw | jpg | jpg+raw | PAL | NTSC) ;;
            *) need "$word" "$second" ;;
        esac
    done
done
echo "$count words"
[ "$count" -ge 30 ] && [ "$missing" -eq 0 ]

#!/usr/bin/env bash
# manual-test.sh PAGE PROGRAM: the long options that the page and the program's --help name are the same.
set -euo pipefail

# A receiver refuses to say anything on a board that it does not know; its help is in the program.
help_of() { "$1" --help 2>&1 | grep -e '--' || strings -n 8 "$1" | grep -E '^-. \| --'; }
options() { grep -oE -e '--[a-z0-9][a-z0-9-]+' | sort -u; }

diff <(help_of "$2" | options) <(sed 's/\\-/-/g' "$1" | grep -v '^\.SH' | options)

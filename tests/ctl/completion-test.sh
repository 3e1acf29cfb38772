#!/usr/bin/env bash
# Bash completes receiver-ctl's words at a terminal, without the package bash-completion:
# completion-test.sh RECEIVER_CTL COMPLETION
set -euo pipefail
# shellcheck source=tests/until-true.sh
. "$(dirname "$(realpath "$0")")/../until-true.sh"
PATH=$(dirname "$(realpath "$1")"):$PATH
completion=$(realpath "$2")
home=$(mktemp -d)
trap 'exec 3>&-; wait; rm -rf "$home"' EXIT
cd "$home"
echo 0123 >'my token'
mkdir captures

# A shell that a person types at: Tab completes, C-x a puts in all that may follow, C-x p hands the line over.
cat >rc <<RC
PS1='> ' HISTFILE=
. "$completion"
bind 'set enable-bracketed-paste off' 'set bell-style none'
bind '"\C-i": complete'
bind '"\C-xa": insert-completions'
hand_over() {
    printf '%s|' "\$READLINE_LINE" >line
    mv line "line.\$((++handed))"
    READLINE_LINE= READLINE_POINT=0
}
bind -x '"\C-xp": hand_over'
RC
mkfifo keys
TERM=dumb LC_ALL=C script -qfec 'bash --noprofile --rcfile rc -i' /dev/null <keys >screen &
exec 3>keys

failures=0 count=0
# typed LINE KEYS RESULT: after what is typed and these keys stands this on the line.
typed() {
    local became
    printf '%s%b\030p' "$1" "$2" >&3
    count=$((count + 1))
    until_true 10 test -e "line.$count" || { cat screen; exit 1; }
    became=$(<"line.$count")
    if [ "$became" != "$3|" ]; then
        echo "$1: '$became' in place of '$3|'"
        failures=1
    fi
}
all='\030a' tab='\t'

typed 'receiver-ctl gim' "$tab" 'receiver-ctl gimbal '
typed 'receiver-ctl gimbal ' "$all" 'receiver-ctl gimbal abs normal selfie '
typed 'receiver-ctl record-' "$tab" 'receiver-ctl record-file '
typed 'receiver-ctl record s' "$all" 'receiver-ctl record start stop '
typed 'receiver-ctl iso 1' "$all" 'receiver-ctl iso 100 1600 '
typed 'receiver-ctl --wait iso 64' "$tab" 'receiver-ctl --wait iso 6400 '
typed 'receiver-ctl ev -0' "$all" 'receiver-ctl ev -0.3 -0.7 '
typed 'receiver-ctl --to' "$tab" 'receiver-ctl --token-file '
typed 'receiver-ctl shot ' "$tab" 'receiver-ctl shot '
typed 'receiver-ctl shutter 2.' "$tab" 'receiver-ctl shutter 2.5\" '
# Within a line, and behind another command.
typed 'receiver-ctl iso 64 --wait' '\002\002\002\002\002\002\002\t' 'receiver-ctl iso 6400 --wait'
typed 'true; receiver-ctl focus af' "$all" 'true; receiver-ctl focus af afa '
# Bash takes these apart.
typed 'receiver-ctl -m http://127.0.0.1:8080 iso 64' "$tab" 'receiver-ctl -m http://127.0.0.1:8080 iso 6400 '
typed 'receiver-ctl --monitor=http://127.0.0.1:8080 iso 64' "$tab" \
    'receiver-ctl --monitor=http://127.0.0.1:8080 iso 6400 '
typed 'receiver-ctl --wait=5 iso 64' "$tab" 'receiver-ctl --wait=5 iso 6400 '
typed 'receiver-ctl aspect 4:' "$tab" 'receiver-ctl aspect 4:3 '
typed 'receiver-ctl aspect 1' "$tab" 'receiver-ctl aspect 16:9 '
typed 'receiver-ctl resolution 2704x1520@' "$tab" 'receiver-ctl resolution 2704x1520@'
typed 'receiver-ctl resolution 2704x1520@3' "$tab" 'receiver-ctl resolution 2704x1520@30 '
typed 'receiver-ctl resolution 1920x1080@12' "$tab" 'receiver-ctl resolution 1920x1080@120 '
typed 'receiver-ctl resolution 40' "$tab" 'receiver-ctl resolution 4096x2160@2'
typed 'receiver-ctl -m ' "$tab" 'receiver-ctl -m '
# Files.
typed 'receiver-ctl -t my' "$tab" 'receiver-ctl -t my\ token '
typed 'receiver-ctl --token-file=my' "$tab" 'receiver-ctl --token-file=my\ token '
typed 'receiver-ctl sniff cap' "$tab" 'receiver-ctl sniff captures/'

printf 'exit\r' >&3
exit "$failures"

#!/usr/bin/env bash
# zoomaf-bench on the twin, fed from a pipe: it starts, focuses by day, switches to night,
# searches, and ends with status 0 at the end of its input, leaving no emulated hardware
# fault. Options it cannot serve are refused.
set -uo pipefail
# The bench command: the program, after the emulator in a cross build.
bench=("$@")
log=$(mktemp)
trap 'rm -f "$log"' EXIT

printf '5\n1\n2\n' | "${bench[@]}" --sim --speed 10 >"$log" 2>&1
status=$?
if [ $status -ne 0 ]; then
    echo "exit status $status"; tail -30 "$log"; exit 1
fi
for text in 'dcc is 416, pdaf software main is 2, sup is 4.' 'thread TestAutoFocusByPDAF start over!' \
            '进入中心对焦处理' 'set day_night_mode value:1' '夜视对焦处于未初始化状态!' \
            '已经完成小步精搜索' 'InterfaceTest: auto focus stopped, exit' \
            'timing faults 0, faults recorded in all 0'; do
    grep -qF -- "$text" "$log" || { echo "missing: $text"; tail -30 "$log"; exit 1; }
done

refused() {
    "${bench[@]}" "$@" </dev/null >/dev/null 2>&1
    local status=$?
    [ $status -ne 0 ] || { echo "accepted: $*"; exit 1; }
    echo "$status"
}
[ "$(refused --sim --scene any.yaml)" -eq 2 ] || { echo "--scene: not status 2"; exit 1; }
refused --speed 2 >/dev/null
refused --sim --speed 0 >/dev/null
echo "bench session on the twin: ok"

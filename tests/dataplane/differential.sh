#!/usr/bin/env bash
# Runs one scenario on both dataplanes, the simulated chip alone and the chip with a private Open
# vSwitch behind it, and checks that they print the same transcript except for how `send`
# explains itself: for every packet sent, the copies that leave the switch must be the same.
#
#   differential.sh SIM SCENARIO
#
# The chip prints every pass of a packet (recirculation included) and why nothing leaves; the
# switch shows only the frames its ports transmit. So each send's output is reduced to its
# "out ..." lines, sorted, on both sides; every other line must match as it is. A first line
# "# options: ..." gives umonat-sim's options, as for the golden scenarios.
set -uo pipefail
if [ $# -ne 2 ]; then
  echo "usage: $0 SIM SCENARIO" >&2
  exit 2
fi
sim=$(realpath "$1")
scenario=$2
dir=$(dirname "$scenario")
args=()
case $(head -n 1 "$scenario") in
  "# options: "*) read -r -a args <<< "$(head -n 1 "$scenario" | sed 's/^# options: //')" ;;
esac
args+=("$(basename "$scenario")")

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Keeps every line, but replaces the lines a send prints by its sorted "out" lines.
copies_only() {
  awk '
    function flush() { if (n > 0) { cmd = "sort"; for (i = 1; i <= n; i++) print outs[i] | cmd; close(cmd) } n = 0 }
    /^> / { flush(); sending = ($2 == "send"); print; next }
    sending && /^(in |  )/ { if ($1 == "out") outs[++n] = $0; next }
    { flush(); sending = 0; print }
    END { flush() }'
}

(cd "$dir" && env -u MOX_TRACE "$sim" "${args[@]}") > "$work/chip" 2>&1
echo "[exit $?]" >> "$work/chip"
(cd "$dir" && env -u MOX_TRACE "$sim" --dataplane ovs "${args[@]}") > "$work/ovs" 2>&1
echo "[exit $?]" >> "$work/ovs"
copies_only < "$work/chip" > "$work/chip.copies"
copies_only < "$work/ovs" > "$work/ovs.copies"
if ! diff -u --label "chip: $scenario" --label "ovs: $scenario" "$work/chip.copies" "$work/ovs.copies"; then
  echo "the dataplanes disagree on $scenario (above: - the chip, + Open vSwitch)"
  exit 1
fi
echo "$(grep -c '^send ' "$scenario" 2>/dev/null || true) sends, the same copies on both dataplanes: $scenario"

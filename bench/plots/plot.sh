#!/usr/bin/env bash
# Draws growth.svg and peers.svg from results.json. Usage: plot.sh RESULTS FOLDER
set -euo pipefail
results=$1
folder=$2
here=$(dirname "$0")
data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT

# Removes gnuplot's empty groups, which draw nothing.
shrink() { sed -i -z 's/<g [^>]*>\n<\/g>\n//g' "$1"; }

if jq -e '.growth' "$results" >/dev/null; then
  # One column per operation, one line per size.
  jq -r '
    [.growth.tables[] | select(.title | test("^(Reads|Writes|Sums)")) | .rows[]] as $rows
    | ["history, newest page [largest]", "list, first page of two kinds",
       "get_unread_count [largest]", "get_max_message_id, any [largest]",
       "save_message [largest]", "clear_unread, none unread [largest]",
       "get_total_unread_count"] as $wanted
    | [$wanted[] as $name | $rows[] | select(.operation == $name)] as $picked
    | ($picked[0] | keys_unsorted | map(select(test("^[0-9]+$")))) as $sizes
    | (["messages"] + [$picked[].operation] | map("\"" + . + "\"") | join(" ")),
      ($sizes[] as $size | [$size] + [$picked[] | .[$size] | tostring] | join(" "))
  ' "$results" >"$data/growth.dat"
  gnuplot -e "data='$data/growth.dat'; picture='$folder/growth.svg'" "$here/growth.gp"
  shrink "$folder/growth.svg"
fi

if jq -e '.peers' "$results" >/dev/null; then
  # The contenders' times relative to ours; rates are inverted.
  jq -r '
    (.peers.tables[] | select(.title | startswith("Work on a store")) | .rows) as $rows
    | ($rows[0] | keys_unsorted | map(select(. != "work"))) as $names
    | (["work"] + $names | map("\"" + . + "\"") | join(" ")),
      ($rows[] | select(.work | test("^ ") | not) | . as $row
       | (.work | test("messages/s")) as $rate
       | ["\"" + (.work | sub(": (microseconds.*|messages/s.*)$"; "") | gsub(", "; ",\\n")) + "\""]
         + [$names[] as $name | $row[$name] as $time | $row.Corvan as $ours
            | if ($time | type) != "number" then "NaN"
              elif $rate then ($ours / $time | tostring) else ($time / $ours | tostring) end]
       | join(" "))
  ' "$results" >"$data/peers.dat"
  gnuplot -e "data='$data/peers.dat'; picture='$folder/peers.svg'" "$here/peers.gp"
  shrink "$folder/peers.svg"
fi

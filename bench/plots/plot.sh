#!/usr/bin/env bash
# Draws growth.svg and peers.svg from results.json. Usage: plot.sh RESULTS FOLDER
set -euo pipefail
results=$1
folder=$2
here=$(dirname "$0")
data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT

# draw NAME [DEFINITION]: runs NAME.gp, and removes gnuplot's empty groups, which draw nothing.
draw() {
  gnuplot -e "style='$here/style.gp'; data='$data/$1.dat'; picture='$folder/$1.svg'; ${2:-}" \
    "$here/$1.gp"
  sed -i -z 's/<g [^>]*>\n<\/g>\n//g' "$folder/$1.svg"
}

if jq -e '.growth' "$results" >/dev/null; then
  # One column per operation, one line per size; the legend has the order of the lines' right ends.
  jq -r '
    [.growth.tables[] | select(.title | test("^(Reads|Writes|Sums)")) | .rows[]] as $rows
    | ["history, newest page [largest]", "list, first page of two kinds",
       "get_unread_count [largest]", "get_max_message_id, any [largest]",
       "save_message [largest]", "clear_unread, none unread [largest]",
       "get_total_unread_count"] as $wanted
    | [$wanted[] as $name | $rows[] | select(.operation == $name)] as $picked
    | ($picked[0] | keys_unsorted | map(select(test("^[0-9]+$")))) as $sizes
    | ($picked | sort_by(-.[$sizes[-1]])) as $picked
    | (["messages"] + [$picked[].operation] | map("\"" + . + "\"") | join(" ")),
      ($sizes[] as $size | [$size] + [$picked[] | .[$size] | tostring] | join(" "))
  ' "$results" >"$data/growth.dat"
  draw growth
fi

if jq -e '.peers' "$results" >/dev/null; then
  # shellcheck disable=SC2016  # the variables are jq's
  drawn='
    (.peers.tables[] | select(.title | startswith("Work on a store")) | .rows
     | map(select(.work | test("^ ") | not))) as $rows
    | {"Corvan cached": ["#0072B2", 7, -0.36],
       "Corvan, built SQLite": ["#56B4E9", 9, -0.22],
       "Corvan cached, built SQLite": ["#222222", 13, -0.08],
       "SQLiteCpp draft": ["#E69F00", 4, 0.08],
       "SQLiteCpp indexed": ["#E69F00", 5, 0.08],
       "SOCI draft": ["#D55E00", 10, 0.22],
       "SOCI indexed": ["#D55E00", 11, 0.22],
       "LMDB": ["#009E73", 15, 0.36],
       "LevelDB": ["#B25A8D", 2, 0.36]} as $styles
    | [$styles | keys_unsorted[] | select($rows[0][.])] as $names'
  # Rates are inverted.
  jq -r "$drawn"'
    | ($names[] as $name
       | "\"" + $name + "\"",
         ($rows | to_entries[] | .key as $row | .value
          | (.[$name] / .Corvan) as $ratio
          | (if .work | test("messages/s") then 1 / $ratio else $ratio end | tostring)
            + " " + ($row + 1 | tostring)),
         "", ""),
      ($rows | to_entries[] | "\(.key + 1) \"" + (.value.work
         | sub(": (microseconds|messages/s).*$"; "")
         | sub(", "; ",\\n") | sub(" of the largest"; "\\nof the largest")) + "\"")
  ' "$results" >"$data/peers.dat"
  draw peers "$(jq -r "$drawn"'
    | "rows=\($rows | length); "
      + (["colours", "shapes", "lanes"] | to_entries
         | map(.key as $at | .value + "=\u0027"
               + ([$names[] as $name | $styles[$name][$at] | tostring] | join(" ")) + "\u0027; ")
         | join(""))
  ' "$results")"
fi

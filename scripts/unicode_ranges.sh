#!/usr/bin/env bash
# Writes addons/search/unspaced_characters.inc from the data of Debian's package unicode-data: the letters,
# marks and numbers of scripts that are written without spaces, or that are searched like them, and the
# emoji outside ASCII.
#
# Usage: unicode_ranges.sh [--check]
#   --check  writes nothing; fails if the file differs. Skipped if the package has another Unicode version.
set -euo pipefail
cd "$(dirname "$0")/.."

file=addons/search/unspaced_characters.inc
data=/usr/share/unicode
bash scripts/install.sh unicode
version=$(sed -n '1s/^# Scripts-\(.*\)\.txt$/\1/p' "$data/Scripts.txt")

# Prints "FIRST LAST" in decimal for each line with one of the scripts, or for each emoji.
ranges() {
  awk '
    function number(hex, i, n) {
      for (i = 1; i <= length(hex); i++)
        n = n * 16 + index("0123456789ABCDEF", substr(hex, i, 1)) - 1
      return n
    }
    BEGIN {
      count = split("Han Hiragana Katakana Hangul Bopomofo Yi Thai Lao Khmer Myanmar Tai_Le " \
                    "New_Tai_Lue Tai_Tham Tai_Viet " \
                    "Hani Hira Kana Hang Bopo Yiii Laoo Khmr Mymr Tale Talu Lana Tavt", names, " ")
      for (i = 1; i <= count; i++) wanted[names[i]] = 1
    }
    !/^[0-9A-F]/ { next }
    {
      split($0, halves, "#")
      split(halves[1], fields, ";")
      gsub(/ /, "", fields[1])
      split(halves[2], comment, " ")
      chosen = 0
      if (FILENAME ~ /emoji/) {
        chosen = fields[2] ~ /^ *Emoji *$/
      } else if (comment[1] ~ /^[LMN]/) {
        count = split(fields[2], scripts, " ")
        for (i = 1; i <= count; i++) if (scripts[i] in wanted) chosen = 1
      }
      if (!chosen) next
      ends = split(fields[1], range, /\.\./)
      first = number(range[1])
      last = number(range[ends])
      if (last >= 128) print (first < 128 ? 128 : first), last
    }' "$data/Scripts.txt" "$data/ScriptExtensions.txt" "$data/emoji/emoji-data.txt"
}

# Joins ranges that touch or overlap. The input is sorted.
joined() {
  awk '
    function flush() { if (any) printf "{0x%04X, 0x%04X},\n", first, last }
    any && $1 <= last + 1 { if ($2 > last) last = $2; next }
    { flush(); first = $1; last = $2; any = 1 }
    END { flush() }'
}

generated() {
  echo "// Made by scripts/unicode_ranges.sh; do not edit. First and last code points of characters that are"
  echo "// searched one by one: letters, marks and numbers of the scripts that are named there, and emoji."
  echo "// clang-format off"
  echo "constexpr const char* kUnspacedVersion = \"$version\";"
  echo "constexpr Range kUnspacedCharacters[] = {"
  ranges | sort -n | joined
  echo "};"
  echo "// clang-format on"
}

case "${1:-}" in
  "") generated >"$file" ;;
  --check)
    if ! grep -q "\"$version\"" "$file"; then
      echo "unicode_ranges.sh: skipped: unicode-data has Unicode $version"
      exit 0
    fi
    diff -u "$file" <(generated)
    ;;
  *)
    echo "usage: unicode_ranges.sh [--check]" >&2
    exit 2
    ;;
esac

#!/usr/bin/env bash
# Exports conversations as HTML and checks the pages in a headless browser: every message is shown,
# hostile texts are shown as text, and nothing is wider than the screen.
# Usage: html_check.sh [--pictures FOLDER]
# With --pictures, saves screenshots to FOLDER. If there is no browser, prints SKIPPED and succeeds.
set -euo pipefail

pictures=
if [ "${1:-}" = --pictures ]; then
  [ $# = 2 ] || { echo "html_check.sh: --pictures needs a folder" >&2; exit 2; }
  mkdir -p "$2"
  pictures=$(realpath "$2")
fi
cd "$(dirname "$0")/.."

bash scripts/install.sh build tools
if ! bash scripts/install.sh html || ! command -v chromium >/dev/null; then
  echo "html_check: SKIPPED, chromium cannot be installed"
  exit 0
fi
corvan=${CORVAN_PROGRAM:-build/debug/tools/corvan}
if [ -z "${CORVAN_PROGRAM:-}" ]; then
  cmake --preset debug >/dev/null
  cmake --build --preset debug --target corvan
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
checks=0

# Opens a page of $work in the browser, with an empty profile and without network access.
browse() {  # PAGE OPTION...
  local page=$1
  shift
  timeout 30 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --hide-scrollbars --user-data-dir="$work/profile" "$@" "file://$work/$page" 2>"$work/browser.log"
}

expect() {  # WHAT WANTED FOUND
  checks=$((checks + 1))
  [ "$2" != "$3" ] || return 0
  failures=$((failures + 1))
  printf 'html_check: %s: expected %s, found %s\n' "$1" "$2" "$3" >&2
}

# The number of times that a text occurs in a file.
count() { grep -oF -- "$2" "$1" | wc -l; }

# Writes everyday conversations. One line per message, separated by tabs: conversation, type,
# sender, text, minutes since the last message, kind of message, sent status.
write_log() {
  awk -F '\t' '
    function quote(text) { gsub(/["\\]/, "\\\\&", text); return "\"" text "\"" }
    BEGIN { time = 1746345600000 }
    {
      time += ($5 == "" ? 1 : $5) * 61000
      own = $3 == "me"
      printf "{\"session_id\":%s,\"session_type\":%d,\"object_name\":%s,\"sender\":%s,", \
        quote($1), $2, quote($6 == "" ? "CV:TxtMsg" : $6), quote($3)
      printf "\"content\":%s,\"is_receive\":%s,\"is_mention\":%s,\"sent_time\":%.0f,", \
        quote($4), own ? "false" : "true", index($4, "@me") ? "true" : "false", time
      printf "\"sent_status\":%d,\"client_uid\":%d,\"server_uid\":\"m-%d\"}\n", \
        $7, own ? NR : 0, NR
    }' <<'LOG'
field-trip	2	u01	Good morning! The bus leaves at half past eight from the north gate.
field-trip	2	u01	Please bring something against the rain.
field-trip	2	u02	Is there room for one more bicycle?	3
field-trip	2	me	Two, if the front wheels come off.	2		3
field-trip	2	u03	I can take the one that does not fit: my car goes the same way, and there is nobody in the back seat. I would leave a quarter of an hour later, though, and stop at the bakery.	4
field-trip	2	me	Perfect, thank you	1		3
field-trip	2	u02	@me can you send the list again? I only have the one from last week.	900
field-trip	2	me	{"name":"list.pdf","size":48213,"pages":2}	2	CV:FileMsg	0
field-trip	2	me	This is the one of today.	1		2
field-trip	2	u03	Café Noël is closed on Mondays; the one at the harbour opens at seven.	30
field-trip	2	u01	See you all tomorrow	600
阅读小组	2	u04	大家好，这周我们读第三章和第四章，周五晚上八点讨论。
阅读小组	2	u05	好的，我已经读完第三章了，写得真好！	2
阅读小组	2	me	第四章有点长，能不能改到周六？	5		3
阅读小组	2	u04	可以。那就周六下午三点，老地方见。	2
阅读小组	2	u06	@me 你上次说的那本书叫什么名字？	40
阅读小组	2	me	叫《海边的灯塔》，图书馆里就有。	3		0
阅读小组	2	u05	谢谢！我明天去借。	1
u07	1	u07	🎉🎉🎉	1300
u07	1	u07	Happy birthday! 🎂
u07	1	me	Thank you! 🥰 We are going up the hill with the 👨‍👩‍👧‍👦 and the 🐕‍🦺	4		3
u07	1	u07	🏔️☀️👍🏽
u07	1	me	🇳🇵 next time 😄	2		1
u08	1	u08	שלום! הפגישה ביום שלישי בשעה 10:30, בבניין B.	20
u08	1	me	תודה, אני אגיע עם המצגת (גרסה 2.1).	3		3
u08	1	u08	السلام عليكم، هل يمكنك إرسال الملف report_2.pdf اليوم؟	60
LOG
}

# Writes a conversation whose texts try to break the page. It is an export to restore, because a log
# cannot contain all of these texts.
write_hostile() {
  local id=0 text
  local texts=(
    '"<script>document.title=\"broken\"</script>"'
    '"</div></li></ol></section></main><h1>broken</h1>"'
    '"\"><img src=x onerror=\"document.title=1\">"'
    '"'"'"' onmouseover='"'"'alert(1)"'
    '"<iframe src=\"https://example.invalid/\"></iframe><svg onload=alert(1)>"'
    '"</style><style>body{display:none}"'
    '"<!-- a comment that is never closed"'
    '"&lt;b&gt; &amp;amp; &#60;i&#62; ]]> <![CDATA["'
    '"the next word is turned: \u202Egpj.exe\u202C and this one is not"'
    '"zero\u200Bwidth\u2060and\uFEFFjoined"'
    '"bell\u0007 escape\u001b[31m return\rend \u0085 \u2028"'
    '{"text_hex":"6265666f72650061667465720020"}'
    '{"text_hex":"6e6f205554462d383a20fffec080eda080"}'
    '{"blob_hex":"3c736372697074207372633d2f2f783e"}'
    "\"$(printf 'W%.0s' {1..10000})\""
    "\"a$(printf '\\u0301\\u0302\\u0323%.0s' {1..200})b\""
    '"javascript:alert(1) https://example.invalid/ url(https://example.invalid/x.png)"'
  )
  printf '{"type":"corvan-export","format":1,"corvan":"","schema_version":"1","user_version":1,'
  printf '"export_time":0,"partial":false,"versions":1,"syncs":0,"sessions":1,"messages":%d,' \
    ${#texts[@]}
  printf '"sequences":0}\n{"type":"version","rowid":1,"database_version":"1"}\n'
  printf '{"type":"session","rowid":1,"session_id":"../../etc/x\\"><script>1</script>",'
  printf '"session_type":2,"title":"</title><script>document.title=1</script>\\u202Etitle",'
  printf '"draft":"</p><style>*{display:none}</style>","is_top":1,"session_time":1,'
  printf '"unread_count":3,"mention_count":1,"silence":1,"latest_id":1,"read_time":0,'
  printf '"receipt_time":0}\n'
  for text in "${texts[@]}"; do
    id=$((id + 1))
    printf '{"type":"message","id":%d,"session_id":"../../etc/x\\"><script>1</script>",' $id
    printf '"session_type":2,"object_name":"%s","content":%s,' \
      "$( ((id % 4)) && echo CV:TxtMsg || echo 'CV:\"><script>2</script>')" "$text"
    printf '"sender":"u09\\"><b class=","direction":%d,"sent_status":%d,"read_status":0,' \
      $((id % 2)) $((id % 4))
    printf '"is_mention":0,"sent_time":%d,"client_uid":0,"server_uid":""}\n' \
      $((1746345600000 + id * 60000))
  done
  printf '{"type":"end","versions":1,"syncs":0,"sessions":1,"messages":%d,"sequences":0}\n' \
    ${#texts[@]}
}

# Checks that a page shows this number of messages, and that texts have added no elements.
check_page() {  # PAGE MESSAGES
  local page=$1 dom=$work/dom.html element
  browse "$page" --dump-dom >"$dom"
  if [ -n "${2:-}" ]; then expect "$page: messages" "$2" "$(count "$dom" '<div class="b">')"; fi
  for element in '<script' '<iframe' '<img' '<svg' '<object' '<link' '<[^>]* on[a-z]*=' \
    '<[^>]* style='; do
    expect "$page: $element" 0 "$(sed 's/<title>.*<\/title>//' "$dom" | grep -oi -- "$element" | wc -l)"
  done
  expect "$page: headings" 1 "$(count "$dom" '<h1>')"
}

# Checks that a page fits on a screen of this width. The browser's window cannot be as narrow as a
# phone, so the page is shown in a frame. The measurement needs a script, which the page itself does
# not allow, so a copy without this restriction is measured.
check_width() {  # PAGE WIDTH
  local folder=$work/${1%/*}
  sed "s|<meta http-equiv=\"Content-Security-Policy\"[^>]*>|<script>addEventListener('load',()=>\
parent.postMessage((document.documentElement.scrollWidth-innerWidth)+' of '+innerWidth,'*'))\
</script>|" "$work/$1" >"$folder/measured.html"
  printf '%s<iframe width=%d height=700 style="border:0" src="measured.html"></iframe>' \
    '<script>addEventListener("message",e=>document.title="beyond "+e.data)</script>' "$2" \
    >"$folder/frame.html"
  browse "${1%/*}/frame.html" --dump-dom --virtual-time-budget=5000 >"$work/dom.html"
  expect "$1: pixels beyond the screen" "<title>beyond 0 of $2</title>" \
    "$(grep -o '<title>.*</title>' "$work/dom.html")"
  rm "$folder/measured.html" "$folder/frame.html"
}

picture() {  # NAME PAGE WIDTH HEIGHT [OPTION...]
  [ -n "$pictures" ] || return 0
  browse "$2" --screenshot="$pictures/$1.png" --window-size="$3,$4" "${@:5}" >/dev/null
}

# The page of the conversation with this name.
page_of() { grep -lF "<h1><bdi>$2</bdi></h1>" "$work/$1"/pages/*.html | sed "s|^$work/||"; }

write_log >"$work/log.jsonl"
"$corvan" import "$work/plain" --user me "$work/log.jsonl" >/dev/null
"$corvan" export "$work/plain" --format html --output "$work/pages-plain" >/dev/null
for name in field-trip 阅读小组 u07 u08; do
  page=$(page_of pages-plain "$name")
  check_page "$page" "$(grep -c "\"session_id\":\"$name\"" "$work/log.jsonl")"
done
latin=$(page_of pages-plain field-trip)
check_page pages-plain/index.html
check_width pages-plain/index.html 360
check_width "$latin" 360

write_hostile >"$work/hostile.jsonl"
"$corvan" restore "$work/hostile.jsonl" "$work/hostile" >/dev/null
"$corvan" export "$work/hostile" --format html --output "$work/pages-hostile" >/dev/null
hostile=pages-hostile/pages/00001.html
check_page "$hostile" "$(grep -c '"type":"message"' "$work/hostile.jsonl")"
for text in '&lt;script&gt;document.title="broken"&lt;/script&gt;' '&lt;/main&gt;&lt;h1&gt;broken' \
  '<span class="mark">\u202e</span>gpj.exe' 'zero' '<span class="mark">\x00</span>after' \
  '<span class="mark">\x1b</span>[31m' '&lt;!-- a comment' '&amp;lt;b&amp;gt;' \
  '&lt;script src=//x&gt;'; do
  expect "$hostile: $text" 1 "$(count "$work/dom.html" "$text")"
done
check_page pages-hostile/index.html
check_width "$hostile" 360
check_width pages-hostile/index.html 360

# Real conversations, if they are available.
data=${CORVAN_DATA_DIR:-../shared/data}/kdconv-zh.jsonl
if [ -r "$data" ]; then
  head -n 600 "$data" >"$work/data.jsonl"
  "$corvan" import "$work/data" --user kd-me "$work/data.jsonl" >/dev/null
  "$corvan" export "$work/data" --format html --output "$work/pages-data" >/dev/null
  check_page pages-data/pages/00001.html
  check_width pages-data/index.html 360
fi

# The first three are the pictures in docs/images.
picture export-list pages-plain/index.html 900 440
picture export-conversation "$latin" 900 1000
picture export-dark "$(page_of pages-plain u07)" 500 760 --blink-settings=preferredColorScheme=0
picture export-hostile "$hostile" 900 1180
picture chinese "$(page_of pages-plain 阅读小组)" 500 1000
picture directions "$(page_of pages-plain u08)" 500 700
picture hostile-list pages-hostile/index.html 500 400

echo "html_check: $checks checks, $failures failed"
[ "$failures" = 0 ]

#!/usr/bin/env bash
# Writes a generated conversation log for `corvan import --user me`. Its content is always the same.
# Usage: sample_log.sh [MESSAGES]
set -euo pipefail

awk -v messages="${1:-2000}" '
  function random(n) {  # 0 to n-1
    seed = (seed * 16807) % 2147483647
    return seed % n
  }
  BEGIN {
    seed = 20240101
    split("private group group chatroom reception system", kind_names, " ")
    kinds = "122345"
    texts = split("Good morning|Are we still on for today?|See the attached plan|On my way" \
                  "|下午开会吗？|好的，没问题|资料已经发到邮箱了|おはようございます|안녕하세요" \
                  "|👍|🎉🎉 Done!|Café at noon ☕|👩‍🚀 lands at 10|Thanks a lot|Привет!", text, "|")
    time = 1700000000000
    for (i = 1; i <= messages; i++) {
      time += 1000 + random(240000)
      room = 1 + random(24)
      k = 1 + room % 6
      own = kind_names[k] != "system" && random(4) == 0
      mention = !own && kind_names[k] == "group" && random(30) == 0
      sender = own ? "me" : (kind_names[k] == "private" ? "peer-" room : "peer-" (1 + random(9)))
      printf "{\"session_id\":\"%s-%02d\",\"session_type\":%d,\"object_name\":\"CV:TxtMsg\",", \
        kind_names[k], room, substr(kinds, k, 1)
      printf "\"sender\":\"%s\",\"content\":\"%s\",\"is_receive\":%s,\"is_mention\":%s,", \
        sender, (mention ? "@me " : "") text[1 + random(texts)], (own ? "false" : "true"), \
        (mention ? "true" : "false")
      printf "\"sent_time\":%.0f,\"client_uid\":%d,\"server_uid\":\"sample-%d\"}\n", \
        time, (own ? i : 0), i
    }
  }'

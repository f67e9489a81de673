// A message store on ordered keys. Its indexes are maintained by hand.

#include <algorithm>
#include <limits>
#include <utility>

#include "bench/peers/key_value_codec.h"
#include "bench/peers/key_value_engine.h"

namespace corvan_bench {

namespace {

using Cursor = KeyValueEngine::Cursor;

constexpr int64_t kMaxNumber = std::numeric_limits<int64_t>::max();

// The first byte of a key is its family.
enum Family : uint8_t {
  kMessage = 'm',       // conversation, time, id -> message
  kMention = 'a',       // same key as the message, for unread mentions -> nothing
  kMessageId = 'i',     // id -> message's key
  kServerUid = 's',     // server uid -> message's key
  kClientUid = 'k',     // conversation, client uid, sender -> message's key
  kBeingSent = 'p',     // id, for messages being sent -> nothing
  kConversation = 'c',  // conversation -> its row
  kList = 'l',          // list order, conversation -> nothing
  kUnread = 'u',        // -> unread messages of all conversations
};

Encoder conversation_part(Family family, const ConversationName& name) {
  Encoder key;
  key.byte(family).byte(static_cast<uint8_t>(name.kind)).ended_text(name.id);
  return key;
}
std::string conversation_key(const ConversationName& name) {
  return conversation_part(kConversation, name).bytes();
}
std::string message_key(Family family, const ConversationName& name, int64_t time, int64_t id) {
  return conversation_part(family, name).number(time).number(id).bytes();
}
std::string client_uid_key(const MessageResponse& m) {
  return conversation_part(kClientUid, conversation_of(m))
      .number(m.client_uid_)
      .last_text(m.sender_)
      .bytes();
}
std::string server_uid_key(const std::string& server_uid) {
  return Encoder().byte(kServerUid).last_text(server_uid).bytes();
}
std::string id_key(Family family, int64_t id) {
  return Encoder().byte(family).number(id).bytes();
}

bool starts_with(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

struct StoredMessage {
  MessageResponse message;
  bool mention = false;
};

std::string encode(const StoredMessage& stored) {
  const MessageResponse& m = stored.message;
  return Encoder()
      .number(m.client_uid_)
      .byte(static_cast<uint8_t>(m.sent_status_))
      .byte(static_cast<uint8_t>(m.read_status_))
      .byte(m.is_receive_ ? 1 : 0)
      .byte(stored.mention ? 1 : 0)
      .text(m.object_name_)
      .text(m.sender_)
      .text(m.server_uid_)
      .last_text(m.content_)
      .bytes();
}

// Without conversation, time and id, which are in the key.
StoredMessage decode_message(std::string_view key, std::string_view value) {
  StoredMessage stored;
  MessageResponse& m = stored.message;
  Decoder place(key);
  place.byte();
  m.session_type_ = static_cast<Corvan::SessionType>(place.byte());
  m.session_id_ = place.ended_text();
  m.sent_time_ = place.number();
  m.msg_id_ = place.number();
  Decoder record(value);
  m.client_uid_ = record.number();
  m.sent_status_ = record.byte();
  m.read_status_ = record.byte();
  m.is_receive_ = record.byte() != 0;
  stored.mention = record.byte() != 0;
  m.object_name_ = record.text();
  m.sender_ = record.text();
  m.server_uid_ = record.text();
  m.content_ = record.last_text();
  return stored;
}

struct Row {
  std::string title;
  std::string draft;
  bool pinned = false;
  int32_t silence = 0;
  int32_t unread = 0;
  int32_t mentions = 0;
  int64_t time = 0;
  int64_t latest_id = 0;
  int64_t latest_time = 0;  // with the id: the key of the newest message
  int64_t read_time = 0;
};

std::string encode(const Row& row) {
  return Encoder()
      .byte(row.pinned ? 1 : 0)
      .number(row.silence)
      .number(row.unread)
      .number(row.mentions)
      .number(row.time)
      .number(row.latest_id)
      .number(row.latest_time)
      .number(row.read_time)
      .text(row.title)
      .text(row.draft)
      .bytes();
}

Row decode_row(std::string_view value) {
  Row row;
  Decoder record(value);
  row.pinned = record.byte() != 0;
  row.silence = record.small_number();
  row.unread = record.small_number();
  row.mentions = record.small_number();
  row.time = record.number();
  row.latest_id = record.number();
  row.latest_time = record.number();
  row.read_time = record.number();
  row.title = record.text();
  row.draft = record.text();
  return row;
}

// Ascending order: pinned first, then newest first.
std::string list_key(const ConversationName& name, const Row& row) {
  return Encoder()
      .byte(kList)
      .byte(row.pinned ? 0 : 1)
      .number(kMaxNumber - row.time)
      .byte(static_cast<uint8_t>(name.kind))
      .last_text(name.id)
      .bytes();
}
ConversationName name_in_list_key(std::string_view key) {
  Decoder place(key);
  place.byte();
  place.byte();
  place.number();
  ConversationName name;
  name.kind = static_cast<Corvan::SessionType>(place.byte());
  name.id = place.last_text();
  return name;
}

class KeyValueStore final : public Store {
 public:
  explicit KeyValueStore(std::unique_ptr<KeyValueEngine> engine) : engine_(std::move(engine)) {}

  void open(const std::string& folder) override {
    engine_->open(folder);
    last_id_ = largest_id();
    fail_messages_being_sent();
  }
  void close() override { engine_->close(); }

  void begin() override { engine_->begin(); }
  void commit() override { engine_->commit(); }

  int64_t save(const MessageResponse& m, bool mention) override {
    if (!m.server_uid_.empty() && has(server_uid_key(m.server_uid_))) return -1;
    if (!m.is_receive_ && has(client_uid_key(m))) return -1;
    return add(m, mention);
  }

  int64_t add(const MessageResponse& m, bool mention) override {
    const int64_t id = ++last_id_;
    const ConversationName name = conversation_of(m);
    const std::string key = message_key(kMessage, name, m.sent_time_, id);
    engine_->put(key, encode(StoredMessage{m, mention}));
    engine_->put(id_key(kMessageId, id), key);
    if (!m.server_uid_.empty()) engine_->put(server_uid_key(m.server_uid_), key);
    if (m.client_uid_ > 0) engine_->put(client_uid_key(m), key);
    if (m.sent_status_ == kSending) engine_->put(id_key(kBeingSent, id), "");
    if (mention) engine_->put(message_key(kMention, name, m.sent_time_, id), "");
    change_row(name, [&](Row& row) {
      row.time = m.sent_time_;
      row.latest_id = id;
      row.latest_time = m.sent_time_;
      row.unread += is_unread(m) ? 1 : 0;
      row.mentions += mention ? 1 : 0;
    });
    return id;
  }

  void pin(const ConversationName& name) override {
    engine_->begin();
    change_row(name, [](Row& row) { row.pinned = true; });
    engine_->commit();
  }

  std::vector<SessionInfo> first_page(int32_t count) override {
    const Read read(*engine_);
    std::vector<SessionInfo> page;
    const std::unique_ptr<Cursor> cursor = engine_->cursor();
    const std::string list = Encoder().byte(kList).bytes();
    for (cursor->seek(list); cursor->valid() && starts_with(cursor->key(), list); cursor->next()) {
      if (page.size() == static_cast<std::size_t>(count)) break;
      page.push_back(list_entry(name_in_list_key(cursor->key())));
    }
    return page;
  }

  std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                       int32_t count) override {
    const Read read(*engine_);
    std::string anchor;
    if (!engine_->get(id_key(kMessageId, before_id), anchor)) return {};
    const int64_t before = decode_time(anchor);
    return walk_back(kMessage, name, before, count,
                     [](const Cursor& at) { return decode_message(at.key(), at.value()).message; });
  }

  int64_t total_unread() override {
    const Read read(*engine_);
    return stored_total();
  }

  std::vector<MessageResponse> mentions(const ConversationName& name) override {
    const Read read(*engine_);
    std::vector<MessageResponse> list =
        walk_back(kMention, name, kMaxNumber, 10, [this](const Cursor& at) {
          std::string key(at.key());
          key.front() = static_cast<char>(kMessage);
          return read_message(key).message;
        });
    std::reverse(list.begin(), list.end());
    return list;
  }

  void mark_read(const ConversationName& name) override {
    engine_->begin();
    change_row(name, [&](Row& row) {
      row.read_time = mark_messages_read(name, row.read_time);
      row.unread = 0;
      row.mentions = 0;
    });
    engine_->commit();
  }

  void remove(const std::vector<int64_t>& ids) override {
    engine_->begin();
    for (const int64_t id : ids) remove_message(id);
    engine_->commit();
  }

 private:
  // Ends a read. Declare it before the cursors, so that it is destroyed after them.
  class Read {
   public:
    explicit Read(KeyValueEngine& engine) : engine_(engine) {}
    Read(const Read&) = delete;
    Read& operator=(const Read&) = delete;
    ~Read() { engine_.end_read(); }

   private:
    KeyValueEngine& engine_;
  };

  static int64_t decode_time(std::string_view message_key) {
    Decoder place(message_key);
    place.byte();
    place.byte();
    place.ended_text();
    return place.number();
  }

  bool has(const std::string& key) { return engine_->get(key, scratch_); }

  int64_t largest_id() {
    const Read read(*engine_);
    const std::unique_ptr<Cursor> cursor = engine_->cursor();
    cursor->seek_before(Encoder().byte(kMessageId + 1).bytes());
    if (!cursor->valid() || cursor->key().front() != static_cast<char>(kMessageId)) return 0;
    return Decoder(cursor->key().substr(1)).number();
  }

  void fail_messages_being_sent() {
    std::vector<std::string> keys;
    {
      const Read read(*engine_);
      const std::string start = Encoder().byte(kBeingSent).bytes();
      const std::unique_ptr<Cursor> cursor = engine_->cursor();
      for (cursor->seek(start); cursor->valid() && starts_with(cursor->key(), start);
           cursor->next()) {
        keys.emplace_back(cursor->key());
      }
    }
    if (keys.empty()) return;
    engine_->begin();
    for (const std::string& being_sent : keys) {
      std::string key;
      engine_->get(id_key(kMessageId, Decoder(being_sent.substr(1)).number()), key);
      StoredMessage stored = read_message(key);
      stored.message.sent_status_ = kFailed;
      engine_->put(key, encode(stored));
      engine_->erase(being_sent);
    }
    engine_->commit();
  }

  // Reads or creates a conversation's row, applies `change`, and updates the list and the unread
  // total.
  template <typename Change>
  void change_row(const ConversationName& name, Change&& change) {
    const std::string key = conversation_key(name);
    Row row;
    std::string old_place;
    if (engine_->get(key, scratch_)) {
      row = decode_row(scratch_);
      old_place = list_key(name, row);
    }
    const int32_t old_unread = row.unread;
    change(row);
    engine_->put(key, encode(row));
    const std::string place = list_key(name, row);
    if (place != old_place) {
      if (!old_place.empty()) engine_->erase(old_place);
      engine_->put(place, "");
    }
    if (row.unread != old_unread) store_total(stored_total() + row.unread - old_unread);
  }

  int64_t stored_total() {
    const std::string key = Encoder().byte(kUnread).bytes();
    return engine_->get(key, scratch_) ? Decoder(scratch_).number() : 0;
  }
  void store_total(int64_t unread) {
    engine_->put(Encoder().byte(kUnread).bytes(), Encoder().number(unread).bytes());
  }

  StoredMessage read_message(const std::string& key) {
    if (!engine_->get(key, scratch_)) throw std::runtime_error("a key without its message");
    return decode_message(key, scratch_);
  }

  SessionInfo list_entry(const ConversationName& name) {
    SessionInfo entry;
    entry.session_id_ = name.id;
    entry.session_type_ = name.kind;
    engine_->get(conversation_key(name), scratch_);
    Row row = decode_row(scratch_);
    entry.title_ = std::move(row.title);
    entry.draft_ = std::move(row.draft);
    entry.is_top_ = row.pinned ? 1 : 0;
    entry.silence_ = row.silence;
    entry.unread_count_ = row.unread;
    entry.mention_count_ = row.mentions;
    entry.session_time = row.time;
    if (row.latest_id > 0) {
      entry.message_ =
          read_message(message_key(kMessage, name, row.latest_time, row.latest_id)).message;
    }
    return entry;
  }

  // Up to `count` keys of the family before `time`, newest first; `take` turns each into a message.
  template <typename Take>
  std::vector<MessageResponse> walk_back(Family family, const ConversationName& name, int64_t time,
                                         int32_t count, Take&& take) {
    std::vector<MessageResponse> list;
    const std::string start = conversation_part(family, name).bytes();
    const std::unique_ptr<Cursor> cursor = engine_->cursor();
    for (cursor->seek_before(message_key(family, name, time, 0));
         cursor->valid() && starts_with(cursor->key(), start); cursor->prev()) {
      if (list.size() == static_cast<std::size_t>(count)) break;
      list.push_back(take(*cursor));
    }
    return list;
  }

  // Marks messages received after the read time as read; returns the new read time.
  int64_t mark_messages_read(const ConversationName& name, int64_t read_time) {
    std::vector<std::pair<std::string, StoredMessage>> unread;
    {
      const std::string start = conversation_part(kMessage, name).bytes();
      const std::unique_ptr<Cursor> cursor = engine_->cursor();
      for (cursor->seek(message_key(kMessage, name, read_time + 1, 0));
           cursor->valid() && starts_with(cursor->key(), start); cursor->next()) {
        StoredMessage stored = decode_message(cursor->key(), cursor->value());
        if (!stored.message.is_receive_) continue;
        read_time = stored.message.sent_time_;
        if (is_unread(stored.message)) unread.emplace_back(cursor->key(), std::move(stored));
      }
    }
    for (auto& [key, stored] : unread) {
      if (stored.mention) {
        engine_->erase(
            message_key(kMention, name, stored.message.sent_time_, stored.message.msg_id_));
      }
      stored.message.read_status_ = 1;
      stored.mention = false;
      engine_->put(key, encode(stored));
    }
    return read_time;
  }

  void remove_message(int64_t id) {
    std::string key;
    if (!engine_->get(id_key(kMessageId, id), key)) return;
    const StoredMessage stored = read_message(key);
    const MessageResponse& m = stored.message;
    const ConversationName name = conversation_of(m);
    engine_->erase(key);
    engine_->erase(id_key(kMessageId, id));
    if (!m.server_uid_.empty()) engine_->erase(server_uid_key(m.server_uid_));
    if (m.client_uid_ > 0) engine_->erase(client_uid_key(m));
    if (m.sent_status_ == kSending) engine_->erase(id_key(kBeingSent, id));
    if (stored.mention) engine_->erase(message_key(kMention, name, m.sent_time_, id));
    change_row(name, [&](Row& row) {
      row.unread -= is_unread(m) ? 1 : 0;
      row.mentions -= stored.mention ? 1 : 0;
      if (row.latest_id == id) find_latest(name, row);
    });
  }

  void find_latest(const ConversationName& name, Row& row) {
    row.latest_id = 0;
    walk_back(kMessage, name, kMaxNumber, 1, [&row](const Cursor& at) {
      MessageResponse m = decode_message(at.key(), at.value()).message;
      row.time = m.sent_time_;
      row.latest_id = m.msg_id_;
      row.latest_time = m.sent_time_;
      return m;
    });
  }

  const std::unique_ptr<KeyValueEngine> engine_;
  int64_t last_id_ = 0;
  std::string scratch_;
};

}  // namespace

std::unique_ptr<Store> make_key_value_store(std::unique_ptr<KeyValueEngine> engine) {
  return std::make_unique<KeyValueStore>(std::move(engine));
}

}  // namespace corvan_bench

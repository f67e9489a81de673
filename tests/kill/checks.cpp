#include "tests/kill/checks.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "tests/model/row_text.h"
#include "tests/support/clock.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

constexpr const char* kIntegrityAndSchema =
    "pragma integrity_check;"
    "select type,name,sql from sqlite_master where sql is not null order by type,name";

// The schema's versions, every row, and the largest id that a message ever had.
constexpr const char* kEverything =
    "select 'versions',database_version from t_version;pragma user_version;"
    "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id;"
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
    "silence,latest_id,read_time,receipt_time from t_session order by session_id,session_type;"
    "select user_id,receive_time,sent_time from t_sync order by user_id;"
    "select name,seq from sqlite_sequence where seq>0";

// The rows that kEverything must return.
Rows everything(const Tables& tables) {
  Rows rows{"versions|1", "1"};
  for (const auto& each : tables.messages) rows.push_back(row_text(each.second));
  std::vector<SessionRow> sessions = tables.sessions;
  std::sort(sessions.begin(), sessions.end(), [](const SessionRow& a, const SessionRow& b) {
    return std::tie(a.session_id, a.session_type) < std::tie(b.session_id, b.session_type);
  });
  for (const SessionRow& s : sessions) rows.push_back(row_text(s));
  for (const auto& [user, s] : tables.syncs) rows.push_back(row_text(user, s));
  if (tables.largest_id > 0) rows.push_back(row_of("t_message", tables.largest_id));
  return rows;
}

bool has_no_rows(const Model& model) {
  return everything(model.tables()) == everything(Tables());
}

struct Found {
  Rows integrity_and_schema;
  Rows everything;
};

Found look(const std::string& file) {
  Found found;
  if (!file_exists(file)) return found;  // looking would create it
  found.integrity_and_schema = rows(file, kIntegrityAndSchema);
  if (found.integrity_and_schema.size() > 1) found.everything = rows(file, kEverything);
  return found;
}

Rows sound(const Rows& schema) {
  Rows rows{"ok"};
  rows.insert(rows.end(), schema.begin(), schema.end());
  return rows;
}

std::string shortened(const std::string& row) {
  constexpr std::size_t kLength = 200;
  return row.size() <= kLength ? row : row.substr(0, kLength) + "...";
}

// The rows that are only in one of the two lists.
std::string difference(const Rows& expected, const Rows& actual) {
  const auto without = [](const Rows& all, const Rows& others, const char* mark) {
    std::string lines;
    for (const std::string& row : all) {
      if (std::find(others.begin(), others.end(), row) == others.end()) {
        lines += mark + shortened(row) + "\n";
      }
    }
    return lines;
  };
  return without(expected, actual, "  missing ") + without(actual, expected, "  instead ");
}

// Finds the state that has these rows. If there is none, describes the difference from the first
// and the last state.
Finding match(const Found& found, const Expected& expected) {
  const Rows& schema = found.integrity_and_schema;
  if (schema.empty() || schema == Rows{"ok"}) {
    const Model& state = expected.states.front();
    if (expected.may_lack_schema && has_no_rows(state)) return {state, ""};
    return {std::nullopt, "the schema is gone"};
  }
  if (schema != sound(expected.schema)) {
    return {std::nullopt, "integrity and schema:\n" + difference(sound(expected.schema), schema)};
  }
  const auto is_stored = [&found](const Model& state) {
    return everything(state.tables()) == found.everything;
  };
  const Model& first = expected.states.front();
  const Model& last = expected.states.back();
  if (is_stored(first)) return {first, ""};
  if (is_stored(last)) return {last, ""};
  for (const Model& state : expected.states) {
    if (is_stored(state)) return {state, "", true};
  }
  return {std::nullopt, "before the operation in doubt:\n" +
                            difference(everything(first.tables()), found.everything) +
                            "after it:\n" +
                            difference(everything(last.tables()), found.everything)};
}

// Runs on the store or on the model.
template <typename Target>
int64_t save_one_more(Target& target) {
  return target.save_message("checked", Corvan::CV_PRIVATE, "CV:TxtMsg", "peer", "afterwards", true,
                             0, 0, true, 5, 0, "", false, false, true);
}

// The rows are compared later, so the result is not needed.
Model opened_with_one_more(Model model) {
  model.open("me");
  save_one_more(model);
  return model;
}

Finding open_and_look(CvDbSingleton& store, const std::string& folder, const Expected& expected,
                      int openings) {
  bool opened = false;
  for (int i = 0; i < openings && !opened; ++i) {
    if (!store.init_open_db(cvrtc::Pathname(folder), "", "me")) break;
    opened = store.is_db_unlocked("") == 0;
  }
  if (!opened) return {std::nullopt, "the store does not open"};
  std::string integrity;
  if (!store.check_integrity(integrity)) return {std::nullopt, "integrity: " + integrity};

  Expected afterwards{{}, expected.schema, false};
  for (const Model& state : expected.states) {
    afterwards.states.push_back(opened_with_one_more(state));
  }
  const int64_t id = save_one_more(store);
  Finding finding = match(look(folder + "corvan"), afterwards);
  if (finding.state && id != finding.state->tables().largest_id) {
    return {std::nullopt, "the save gave id " + std::to_string(id)};
  }
  return finding;
}

uint32_t big_endian(const std::string& bytes, std::size_t at) {
  uint32_t value = 0;
  for (std::size_t i = at; i < at + 4; ++i) value = value << 8 | static_cast<uint8_t>(bytes[i]);
  return value;
}

}  // namespace

std::vector<Model> possible_states(const Model& model, const PlannedCall* next) {
  std::vector<Model> states{model};
  if (next != nullptr) {
    if (!model.in_transaction() && next->between) {
      set_clock(next->clock);
      for (Model& state : next->between(model)) states.push_back(std::move(state));
    }
    states.push_back(model);
    run(*next, states.back());
  }
  for (Model& state : states) state.close();
  return states;
}

std::vector<std::string> whole_schema() {
  const TemporaryFolder folder;
  CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder.path()), "", "me");
  CvDbSingleton::delete_instance();
  Rows schema = look(folder.file("corvan")).integrity_and_schema;
  schema.erase(schema.begin());
  return schema;
}

Finding check_with_plain_connection(const std::string& folder, const Expected& expected) {
  try {
    return match(look(folder + "corvan"), expected);
  } catch (const std::runtime_error& error) {
    return {std::nullopt, error.what()};
  }
}

Finding check_with_store(const std::string& folder, const Expected& expected, int openings) {
  Finding finding;
  try {
    finding = open_and_look(*CvDbSingleton::get_instance(), folder, expected, openings);
  } catch (const std::runtime_error& error) {
    finding = {std::nullopt, error.what()};
  }
  CvDbSingleton::delete_instance();
  if (finding.state) finding.state->close();
  return finding;
}

// The log begins with a header of 32 bytes. Each page follows a header of 24 bytes, which has the
// file's size in pages if the page ends a transaction, else 0. A page whose salts differ from the
// log's is left over from before the last checkpoint.
bool ends_inside_commit(const std::string& file) {
  constexpr std::size_t kHeader = 32;
  constexpr std::size_t kFrameHeader = 24;
  if (!file_exists(file)) return false;
  std::string log(static_cast<std::size_t>(std::filesystem::file_size(file)), '\0');
  std::ifstream(file, std::ios::binary).read(log.data(), static_cast<std::streamsize>(log.size()));
  if (log.size() < kHeader) return !log.empty();
  const std::size_t page = big_endian(log, 8);
  bool inside = false;
  for (std::size_t at = kHeader; at < log.size(); at += kFrameHeader + page) {
    if (at + kFrameHeader + page > log.size()) return true;
    if (log.compare(at + 8, 8, log, 16, 8) != 0) break;
    inside = big_endian(log, at + 4) == 0;
  }
  return inside;
}

}  // namespace corvan_test

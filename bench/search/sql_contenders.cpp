#include "bench/search/sql_contenders.h"

#include <filesystem>
#include <utility>

namespace corvan_bench {

namespace {

constexpr int64_t kBatch = 4096;  // messages per transaction

Contender::Ids ids_of(Statement& statement) {
  Contender::Ids ids;
  while (statement.step()) ids.push_back(statement.number(0));
  statement.reset();
  return ids;
}

// As they stand in a text: a phrase is one pattern.
std::vector<std::string> patterns_of(const SearchQuery& query) {
  std::vector<std::string> patterns;
  for (const std::string& word : query.words) {
    if (query.is_phrase() && !patterns.empty()) {
      patterns.back() += ' ' + word;
    } else {
      patterns.push_back(word);
    }
  }
  for (std::string& pattern : patterns) pattern.insert(0, 1, '%').push_back('%');
  return patterns;
}

int64_t largest_id(const Database& store) {
  Statement largest(store, "select max(id) from store.t_message");
  largest.step();
  return largest.number(0);
}

}  // namespace

LikeContender::LikeContender(std::string store_file, std::size_t step)
    : Contender(kLike), store_file_(std::move(store_file)), step_(step) {}

void LikeContender::open() {
  database_ = std::make_unique<Database>(store_file_);
}

void LikeContender::close() {
  database_.reset();
}

Contender::Ids LikeContender::find(const SearchQuery& query, int64_t at_most) {
  const std::vector<std::string> patterns = patterns_of(query);
  std::string sql = "select id from t_message where ";
  if (!query.session_id.empty()) sql += "session_id=?1 and session_type=?2 and ";
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    sql += (i > 0 ? "and content like ?" : "content like ?") + std::to_string(i + 4) + ' ';
  }
  Statement find(*database_, sql + "order by sent_time desc,id desc limit ?3");
  if (!query.session_id.empty()) {
    find.bind(1, query.session_id);
    find.bind(2, int64_t{query.session_type});
  }
  find.bind(3, at_most);
  for (std::size_t i = 0; i < patterns.size(); ++i) find.bind(static_cast<int>(i) + 4, patterns[i]);
  return ids_of(find);
}

Fts5Contender::Fts5Contender(const std::string& name, std::string tokenizer, std::string store_file)
    : Contender(name), tokenizer_(std::move(tokenizer)), store_file_(std::move(store_file)) {}

void Fts5Contender::remove() {
  std::filesystem::remove(file());
}

void Fts5Contender::build() {
  Database index(file());
  index.run("pragma journal_mode=wal;pragma synchronous=normal");
  index.run("create virtual table words using fts5(content,content='',tokenize='" + tokenizer_ +
            "');attach '" + store_file_ + "' as store");
  const int64_t last = largest_id(index);
  Statement insert(index,
                   "insert into words(rowid,content) "
                   "select id,content from store.t_message where id>?1 and id<=?1+?2");
  for (int64_t id = 0; id < last; id += kBatch) {
    insert.bind(1, id);
    insert.bind(2, kBatch);
    insert.step();
    insert.reset();
  }
}

void Fts5Contender::settle() {
  Database index(file());
  index.run("insert into words(words) values('optimize');vacuum");
}

void Fts5Contender::open() {
  database_ = std::make_unique<Database>(file());
  database_->run("attach '" + store_file_ + "' as store");
  const std::string select = "select w.rowid from words w ";
  const std::string order = "order by w.rowid desc limit ?2";
  find_.emplace(*database_, select + "where words match ?1 " + order);
  find_in_conversation_.emplace(*database_, select +
                                                "join store.t_message m on m.id=w.rowid "
                                                "where words match ?1 and m.session_id=?3 "
                                                "and m.session_type=?4 " +
                                                order);
}

void Fts5Contender::close() {
  find_.reset();
  find_in_conversation_.reset();
  database_.reset();
}

// The trigram tokenizer finds parts of words anyway; there `*` would be part of the text.
std::string Fts5Contender::match_of(const SearchQuery& query) const {
  std::string match;
  for (const std::string& word : query.words) {
    if (query.is_phrase() && !match.empty()) {
      match.back() = ' ';
      match += word + '"';
    } else {
      match += (match.empty() ? "\"" : " \"") + word + '"';
    }
  }
  return query.is_prefix() && tokenizer_ != "trigram" ? match + '*' : match;
}

Contender::Ids Fts5Contender::find(const SearchQuery& query, int64_t at_most) {
  const std::string match = match_of(query);
  const bool in_conversation = !query.session_id.empty();
  Statement& find = in_conversation ? *find_in_conversation_ : *find_;
  find.bind(1, match);
  find.bind(2, at_most);
  if (in_conversation) {
    find.bind(3, query.session_id);
    find.bind(4, int64_t{query.session_type});
  }
  return ids_of(find);
}

}  // namespace corvan_bench

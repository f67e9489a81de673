#include "bench/floor/operations.h"

#include <sstream>
#include <utility>

#include "bench/floor/fixture.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;
using Corvan::SessionInfo;

constexpr int kPage = 20;

std::string text_of(const MessageResponse& m) {
  std::ostringstream out;
  out << m.session_id_ << '|' << m.sender_ << '|' << m.object_name_ << '|' << m.content_ << '|'
      << m.server_uid_ << '|' << m.msg_id_ << '|' << m.session_type_ << '|' << m.read_status_ << '|'
      << m.sent_status_ << '|' << m.unread_count_ << '|' << m.mention_count_ << '|' << m.is_receive_
      << m.is_store_ << m.is_offline_ << m.is_command_ << m.sync_time_ << '|' << m.sent_time_ << '|'
      << m.client_uid_ << '\n';
  return out.str();
}

std::string text_of(const SessionInfo& s) {
  std::ostringstream out;
  out << s.session_id_ << '|' << s.title_ << '|' << s.draft_ << '|' << s.session_type_ << '|'
      << s.is_top_ << '|' << s.silence_ << '|' << s.unread_count_ << '|' << s.mention_count_ << '|'
      << s.session_time << '|' << text_of(s.message_);
  return out.str();
}

template <typename Record>
std::string text_of(const std::vector<Record>& records) {
  Report::verify(records.size() == kPage, "a full page is returned");
  std::string text;
  for (const Record& record : records) text += text_of(record);
  return text;
}

void end_transaction(Contender& contender, bool keep) {
  contender.run(keep ? "commit transaction" : "rollback transaction");
}

class Save final : public Operation {
 public:
  Save() : Operation("save a message", 50) {
    for (int i = 0; i < calls(); ++i) messages_.push_back(message(kMessages + i));
  }
  void set_up(Contender& contender) override { contender.run("begin transaction"); }
  void call(Contender& contender, int number) override {
    id_ = contender.save(messages_[static_cast<std::size_t>(number)]);
  }
  void finish(Contender& contender, bool keep) override { end_transaction(contender, keep); }
  std::string result() const override {
    Report::verify(id_ > kMessages, "a message is saved");
    return std::to_string(id_);
  }

 private:
  std::vector<MessageResponse> messages_;
  int64_t id_ = 0;
};

class SaveBatch final : public Operation {
 public:
  SaveBatch() : Operation(kBatchSave, 1) {
    for (int i = 0; i < 1000; ++i) {
      messages_.push_back(std::make_unique<MessageResponse>(message(kMessages + 1000 + i)));
    }
  }
  void set_up(Contender& contender) override {
    for (const auto& each : messages_) each->msg_id_ = -1;
    contender.run("begin transaction");
  }
  void call(Contender& contender, int) override { saved_ = contender.save_batch(messages_); }
  void finish(Contender& contender, bool keep) override { end_transaction(contender, keep); }
  std::string result() const override {
    Report::verify(saved_, "a batch is saved");
    std::string ids;
    for (const auto& each : messages_) ids += std::to_string(each->msg_id_) + '\n';
    return ids;
  }

 private:
  Contender::Messages messages_;
  bool saved_ = false;
};

class HistoryPage final : public Operation {
 public:
  HistoryPage() : Operation(kHistoryPage, 10) {}
  void call(Contender& contender, int) override {
    std::vector<MessageResponse> page;
    contender.history_page(session_id_, kPage, page);
    page_ = std::move(page);
  }
  std::string result() const override { return text_of(page_); }
  void copy_records() const override { const std::vector<MessageResponse> copy = page_; }

 private:
  const std::string session_id_ = conversation(7);
  std::vector<MessageResponse> page_;
};

class ListPage final : public Operation {
 public:
  ListPage() : Operation("list 20 conversations", 10) {}
  void call(Contender& contender, int) override {
    std::vector<SessionInfo> page;
    contender.list_page(kinds_, kPage, page);
    page_ = std::move(page);
  }
  std::string result() const override { return text_of(page_); }
  void copy_records() const override { const std::vector<SessionInfo> copy = page_; }

 private:
  const std::vector<Corvan::SessionType> kinds_ = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};
  std::vector<SessionInfo> page_;
};

class UnreadCount final : public Operation {
 public:
  UnreadCount() : Operation("count the unread", 100) {}
  void call(Contender& contender, int) override {
    unread_ = -1;
    contender.unread_count(session_id_, unread_);
  }
  std::string result() const override {
    Report::verify(unread_ > 0, "a conversation has unread messages");
    return std::to_string(unread_);
  }

 private:
  const std::string session_id_ = conversation(3);
  int32_t unread_ = -1;
};

// Alternately marks messages as read and unread.
class SetReadStatus final : public Operation {
 public:
  SetReadStatus() : Operation("set a read status", 25) {}
  void set_up(Contender&) override { read_ = !read_; }
  void call(Contender& contender, int number) override {
    set_ = contender.set_read_status(number + 1, read_ ? 1 : 0);
  }
  std::string result() const override {
    Report::verify(set_, "a read status is set");
    return "";
  }

 private:
  bool read_ = false;
  bool set_ = false;
};

// Deletes messages that are saved before each run, including the newest of their conversations.
class Delete final : public Operation {
 public:
  Delete(std::string name, int calls, int ids) : Operation(std::move(name), calls), ids_(ids) {}
  void set_up(Contender& contender) override {
    deleted_.assign(static_cast<std::size_t>(calls()), {});
    contender.run("begin transaction");
    int number = kMessages + 2000;
    for (std::vector<int64_t>& call : deleted_) {
      for (int i = 0; i < ids_; ++i) {
        MessageResponse m = message(number++);
        m.session_id_ = conversation(5);
        call.push_back(contender.save(m));
      }
    }
    contender.run("commit transaction");
  }
  void call(Contender& contender, int number) override {
    // Newest first, so that each call deletes a conversation's newest message.
    done_ = contender.delete_messages(deleted_[static_cast<std::size_t>(calls() - 1 - number)]);
  }
  std::string result() const override {
    Report::verify(done_, "messages are deleted");
    return "";
  }

 private:
  int ids_;
  std::vector<std::vector<int64_t>> deleted_;
  bool done_ = false;
};

}  // namespace

std::vector<std::unique_ptr<Operation>> make_operations() {
  std::vector<std::unique_ptr<Operation>> operations;
  operations.push_back(std::make_unique<Save>());
  operations.push_back(std::make_unique<SaveBatch>());
  operations.push_back(std::make_unique<HistoryPage>());
  operations.push_back(std::make_unique<ListPage>());
  operations.push_back(std::make_unique<UnreadCount>());
  operations.push_back(std::make_unique<SetReadStatus>());
  operations.push_back(std::make_unique<Delete>(kBatchDeletion, 10, 20));
  operations.push_back(std::make_unique<Delete>("delete a message", 25, 1));
  return operations;
}

}  // namespace corvan_bench

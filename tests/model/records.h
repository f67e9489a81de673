// The model's rows as the records that the store returns.

#ifndef TESTS_MODEL_RECORDS_H_
#define TESTS_MODEL_RECORDS_H_

#include <cstdint>
#include <string>

#include "db/cv_db_records.h"
#include "tests/model/model.h"

namespace corvan_test {

// Whether get_maxtime() chooses the message by this `type`.
bool in_type(const MessageRow& row, int32_t type);

// A message as the lists of messages return it.
Corvan::MessageResponse listed(const MessageRow& row, const std::string& session_id,
                               Corvan::SessionType session_type);

// Fills a Session's fields from its latest message.
void fold(const MessageRow& row, Corvan::Session& conv);
// Fills a Session's fields from its row, except id and kind.
void fold(const SessionRow& row, Corvan::Session& conv);

void hand_out(const Corvan::Session& conv, Corvan::SessionInfo& info);
bool same_conversation(const Corvan::Session& a, const Corvan::Session& b);

}  // namespace corvan_test

#endif  // TESTS_MODEL_RECORDS_H_

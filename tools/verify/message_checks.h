// Reads t_message, checks each row by itself, and counts the messages of each conversation.

#ifndef TOOLS_VERIFY_MESSAGE_CHECKS_H_
#define TOOLS_VERIFY_MESSAGE_CHECKS_H_

#include "tools/verify/contents.h"
#include "tools/verify/store_reader.h"

namespace corvan_tool {

// Fills in everything about messages in `contents`. Call read_sessions() first.
void read_messages(StoreReader& store, Contents& contents, MessageFindings& findings);

// Finds messages without a conversation row. Reads t_message once more for all conversations: a
// query for each of them would need an index, which may be missing.
void find_orphans(StoreReader& store, const Contents& contents, MessageFindings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_MESSAGE_CHECKS_H_

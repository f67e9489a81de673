// Reads t_message, checks each row by itself and counts the messages of each conversation.

#ifndef TOOLS_VERIFY_MESSAGE_CHECKS_H_
#define TOOLS_VERIFY_MESSAGE_CHECKS_H_

#include "tools/verify/contents.h"
#include "tools/verify/row_reader.h"

namespace corvan_tool {

// Fills in everything in `contents` that is about messages. read_sessions() must have been called.
void read_messages(RowReader& rows, Contents& contents, MessageFindings& findings);

// Finds messages without a conversation row. Reads t_message again, once for all conversations: a
// query for each would need an index, which may be missing.
void find_orphans(RowReader& rows, const Contents& contents, MessageFindings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_MESSAGE_CHECKS_H_

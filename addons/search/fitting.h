// Whether an index belongs to the store as it is now.

#ifndef ADDONS_SEARCH_FITTING_H_
#define ADDONS_SEARCH_FITTING_H_

#include "addons/search/index_writer.h"
#include "addons/search/store_reader.h"

namespace Corvan::search {

// Forgets the messages whose ids the store has not given yet, and returns the number of forgotten
// ids. An older copy of the store gives the ids after its own end again, to other messages.
int64_t cut_to_store(IndexWriter* index, StoreReader* store);

// Compares the newest messages of the index with the store, goes back to where they agree, and
// forgets all messages above. So an index of another store, or of a store that was rolled back,
// does not hide messages. False if nothing agrees.
bool fit_to_store(IndexWriter* index, StoreReader* store);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FITTING_H_

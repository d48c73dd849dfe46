#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "assistant/conversation.h"
#include "base/result.h"

namespace quillo::assistant {

// The assistant's conversations on disk: one JSON file per conversation, named by its id, in one
// folder. Writes are atomic. A file that can't be read is left exactly as it is and never written
// over. Thread: the owner's (the assistant model's main queue).
class ConversationStore {
public:
    // `folder` is made on the first save.
    explicit ConversationStore(std::filesystem::path folder);
    // The support folder's "Conversations".
    static std::filesystem::path defaultFolder();

    struct Loaded {
        std::vector<Conversation> conversations;  // newest first (by `updated`)
        std::vector<std::string> notices;         // one per file skipped, for the chat
    };
    // Reads every conversation. Damaged files are skipped with a notice naming them.
    Loaded load();

    Result<void> save(const Conversation& conversation);
    // Removes the conversation's file; one that was never saved is no error.
    Result<void> remove(const std::string& id);

    std::filesystem::path fileFor(const std::string& id) const;
    const std::filesystem::path& folder() const { return m_folder; }

private:
    std::filesystem::path m_folder;
    std::set<std::string> m_damaged;  // ids whose files are kept as they are
};

// Newest first by `updated`, then by id so the order is stable.
void sortNewestFirst(std::vector<Conversation>& conversations);

}  // namespace quillo::assistant

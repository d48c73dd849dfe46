#include "assistant/conversation_store.h"

#include <algorithm>
#include <system_error>

#include "base/files.h"
#include "base/log.h"
#include "base/paths.h"

namespace quillo::assistant {

namespace fs = std::filesystem;

namespace {

// Only UUID-like names are ids: a file name never reaches outside the folder.
bool isValidId(const std::string& id) {
    return !id.empty() && id.size() <= 64 && std::all_of(id.begin(), id.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == '-';
    });
}

std::string skippedNotice(const fs::path& file, const std::string& why) {
    return "The conversation in " + file.string() + " was skipped and left as it is: " + why;
}

}  // namespace

ConversationStore::ConversationStore(fs::path folder) : m_folder(std::move(folder)) {}

fs::path ConversationStore::defaultFolder() { return supportFolder() / "Conversations"; }

fs::path ConversationStore::fileFor(const std::string& id) const {
    return m_folder / (id + ".json");
}

void sortNewestFirst(std::vector<Conversation>& conversations) {
    std::stable_sort(conversations.begin(), conversations.end(),
                     [](const Conversation& a, const Conversation& b) {
                         if (a.updated != b.updated) {
                             return a.updated > b.updated;
                         }
                         return a.id < b.id;
                     });
}

ConversationStore::Loaded ConversationStore::load() {
    Loaded loaded;
    std::error_code error;
    std::vector<fs::path> files;
    for (fs::directory_iterator it(m_folder, error), end; !error && it != end;
         it.increment(error)) {
        const fs::path& path = it->path();
        if (path.extension() == ".json" && path.filename().string().front() != '.') {
            files.push_back(path);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        loaded.notices.push_back("The conversations in " + m_folder.string() +
                                 " can't be listed: " + error.message() + ".");
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& path : files) {
        const std::string id = path.stem().string();
        auto bytes = readFile(path);
        if (!bytes) {
            m_damaged.insert(id);
            loaded.notices.push_back(skippedNotice(path, bytes.error().message));
            continue;
        }
        auto conversation = conversationFromJson(*bytes);
        if (!conversation) {
            m_damaged.insert(id);
            loaded.notices.push_back(skippedNotice(path, conversation.error().message));
            continue;
        }
        if (conversation->id != id) {
            m_damaged.insert(id);
            loaded.notices.push_back(skippedNotice(
                path, "it holds the conversation " + conversation->id + " under another name."));
            continue;
        }
        loaded.conversations.push_back(std::move(*conversation));
    }
    for (const std::string& notice : loaded.notices) {
        logInfo("assistant", notice);
    }
    sortNewestFirst(loaded.conversations);
    return loaded;
}

Result<void> ConversationStore::save(const Conversation& conversation) {
    if (!isValidId(conversation.id)) {
        return AppError("The conversation can't be saved: its id \"" + conversation.id +
                        "\" can't name a file.");
    }
    if (m_damaged.count(conversation.id) != 0) {
        return AppError("The conversation can't be saved: " + fileFor(conversation.id).string() +
                        " couldn't be read and is kept as it is.");
    }
    std::error_code error;
    fs::create_directories(m_folder, error);
    if (error) {
        return AppError("The folder " + m_folder.string() + " can't be made: " + error.message() +
                        ".");
    }
    auto written = writeFileAtomically(fileFor(conversation.id),
                                       toPrettyJson(toJson(conversation)) + "\n", 0600);
    if (!written) {
        return AppError("The conversation can't be saved: " + written.error().message,
                        written.error().detail);
    }
    return {};
}

Result<void> ConversationStore::remove(const std::string& id) {
    if (!isValidId(id)) {
        return AppError("There is no conversation " + id + ".");
    }
    if (m_damaged.count(id) != 0) {
        return AppError("The conversation in " + fileFor(id).string() +
                        " couldn't be read and is kept as it is.");
    }
    std::error_code error;
    fs::remove(fileFor(id), error);
    if (error) {
        return AppError("The conversation can't be deleted: " + error.message() + ".");
    }
    return {};
}

}  // namespace quillo::assistant

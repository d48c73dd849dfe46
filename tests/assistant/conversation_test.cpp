// Conversations on disk: what is written reads back the same, damaged files are skipped and kept
// as they are, the list is newest first, titles come from the first message.

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "assistant/conversation_store.h"
#include "base/files.h"

namespace quillo::assistant {
namespace {

namespace fs = std::filesystem;

class ConversationStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/quillo-conversations-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        m_root = name;
        folder = m_root / "Conversations";
    }
    void TearDown() override { fs::remove_all(m_root); }

    static Conversation dated(const std::string& id, double updated) {
        Conversation conversation;
        conversation.id = id;
        conversation.created = 1700000000;
        conversation.updated = updated;
        conversation.messages.push_back({MessageRole::User, "hello " + id, {}});
        return conversation;
    }

    fs::path folder;

private:
    fs::path m_root;
};

TEST_F(ConversationStoreTest, WhatIsSavedReadsBackTheSame) {
    Conversation conversation = makeConversation(EngineKind::Claude);
    conversation.title = "Settings demo «LinkedIn»";
    conversation.model = "opus";
    conversation.effort = "high";
    conversation.sessionId = "5c1d-session";
    conversation.created = 1700000000.25;
    conversation.updated = 1700000123.5;
    conversation.messages = {
        {MessageRole::User, "record a demo of the settings page\nand export it", {}},
        {MessageRole::Assistant,
         "Recording now.",
         {{"toolu_1", "list_recordings", "", StepState::Done},
          {"toolu_2", "start_recording", "display: 0", StepState::Failed},
          {"toolu_3", "Read", "file_path: /tmp/a", StepState::Running}}},
        {MessageRole::Note, "Stopped.", {}},
        {MessageRole::Error, "Claude Code hit an error.", {}},
    };
    ConversationStore store(folder);
    ASSERT_TRUE(store.save(conversation));
    EXPECT_TRUE(fs::exists(folder / (conversation.id + ".json")));

    ConversationStore::Loaded loaded = ConversationStore(folder).load();
    EXPECT_TRUE(loaded.notices.empty());
    ASSERT_EQ(loaded.conversations.size(), 1u);
    EXPECT_EQ(loaded.conversations[0], conversation);

    // Optional fields left out stay out.
    conversation.model.reset();
    conversation.sessionId.reset();
    ASSERT_TRUE(store.save(conversation));
    EXPECT_EQ(ConversationStore(folder).load().conversations.at(0), conversation);
}

TEST_F(ConversationStoreTest, DamagedFilesAreSkippedWithANoticeAndNeverWrittenOver) {
    ConversationStore store(folder);
    ASSERT_TRUE(store.save(dated("AAAA-1", 1700000001)));
    Json good = toJson(dated("BBBB-2", 1700000002));
    Json unknownRole = good;
    unknownRole["messages"][0]["role"] = "narrator";
    Json renamed = toJson(dated("CCCC-3", 1700000003));
    const std::map<std::string, std::string> damaged{
        {"BBBB-2", "{\"id\": \"BBBB-2\", \"title\": "},  // cut off mid-write by another program
        {"DDDD-4", unknownRole.dump()},
        {"EEEE-5", renamed.dump()},  // holds another conversation
        {"FFFF-6", "[]"},
    };
    for (const auto& [id, text] : damaged) {
        std::ofstream(folder / (id + ".json")) << text;
    }

    ConversationStore reopened(folder);
    ConversationStore::Loaded loaded = reopened.load();
    ASSERT_EQ(loaded.conversations.size(), 1u);
    EXPECT_EQ(loaded.conversations[0].id, "AAAA-1");
    ASSERT_EQ(loaded.notices.size(), damaged.size());
    EXPECT_NE(loaded.notices[0].find((folder / "BBBB-2.json").string()), std::string::npos);
    EXPECT_NE(loaded.notices[1].find("narrator"), std::string::npos);

    // Neither saving nor deleting touches them.
    EXPECT_FALSE(reopened.save(dated("BBBB-2", 1700000009)));
    EXPECT_FALSE(reopened.remove("DDDD-4"));
    for (const auto& [id, text] : damaged) {
        EXPECT_EQ(readFile(folder / (id + ".json")).value_or(""), text) << id;
    }
}

TEST_F(ConversationStoreTest, ListsNewestFirstAndDeletes) {
    ConversationStore store(folder);
    ASSERT_TRUE(store.save(dated("AAAA-1", 1700000050)));
    ASSERT_TRUE(store.save(dated("BBBB-2", 1700000300)));
    ASSERT_TRUE(store.save(dated("CCCC-3", 1700000100.5)));
    std::ofstream(folder / "notes.txt") << "not a conversation";

    auto ids = [&] {
        std::vector<std::string> result;
        for (const Conversation& conversation : ConversationStore(folder).load().conversations) {
            result.push_back(conversation.id);
        }
        return result;
    };
    EXPECT_EQ(ids(), (std::vector<std::string>{"BBBB-2", "CCCC-3", "AAAA-1"}));
    ASSERT_TRUE(store.remove("BBBB-2"));
    EXPECT_EQ(ids(), (std::vector<std::string>{"CCCC-3", "AAAA-1"}));
    EXPECT_TRUE(store.remove("BBBB-2"));  // already gone
    EXPECT_FALSE(store.remove("../notes"));
    EXPECT_FALSE(store.save(dated("../escape", 1)));
}

TEST_F(ConversationStoreTest, AMissingFolderIsAnEmptyList) {
    ConversationStore::Loaded loaded = ConversationStore(folder / "nowhere").load();
    EXPECT_TRUE(loaded.conversations.empty());
    EXPECT_TRUE(loaded.notices.empty());
}

// --- titles and dates

TEST(ConversationTitle, ComesFromTheFirstLineCutAtAWord) {
    EXPECT_EQ(titleFromMessage("  \n record a demo\nof the settings page"), "record a demo");
    EXPECT_EQ(titleFromMessage(" \n\t"), "");
    const std::string cut = titleFromMessage(
        "record a demo of the settings page and export it for LinkedIn with captions on");
    EXPECT_EQ(cut, "record a demo of the settings page and export it for…");
    // Never half a character.
    const std::string accents(41, 'a');
    const std::string title = titleFromMessage(accents + "ééééééééééééééé");
    EXPECT_EQ(title, accents + "ééééééééé…");

    Conversation conversation;
    EXPECT_EQ(displayTitle(conversation), "New conversation");
    conversation.messages.push_back({MessageRole::Note, "note", {}});
    conversation.messages.push_back({MessageRole::User, "first\nsecond", {}});
    EXPECT_EQ(displayTitle(conversation), "first");
    conversation.title = "Mine";
    EXPECT_EQ(displayTitle(conversation), "Mine");
}

TEST(ConversationDates, ReadBackToTheMillisecond) {
    EXPECT_EQ(isoDate(1700000000.123), "2023-11-14T22:13:20.123Z");
    EXPECT_NEAR(*parseIsoDate("2023-11-14T22:13:20.123Z"), 1700000000.123, 1e-6);
    EXPECT_EQ(parseIsoDate("2023-11-14T22:13:20Z"), 1700000000.0);
    EXPECT_FALSE(parseIsoDate("yesterday"));
    EXPECT_FALSE(parseIsoDate("2023-13-14T22:13:20Z"));
    EXPECT_FALSE(parseIsoDate("2023-11-14T22:13:20.123"));
}

TEST(StepInput, IsSummarizedOnOneLine) {
    EXPECT_EQ(summarizeInput(Json::object()), "");
    EXPECT_EQ(summarizeInput(Json{{"path", "/tmp/a\nb"}, {"limit", 3}}),
              "limit: 3, path: /tmp/a b");
}

}  // namespace
}  // namespace quillo::assistant

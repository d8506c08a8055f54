#include "TarnwellCore/Layout/RemovalTracker.hpp"
#include "TarnwellCore/Scanning/FileTreeBuilder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace tarnwell {
namespace {

using Paths = std::vector<std::string>;

TEST(RemovalTracker, FollowsWhatGoesAndComesBack) {
    FileTreeBuilder builder("/home/alice");
    FileNode& folder = builder.addFolder(builder.root(), "d\xE9");
    const FileNode& file = builder.addFile(folder, "f", 5);
    const FileNode& other = builder.addFile(builder.root(), "other", 5);
    RemovalTracker tracker(builder.finish());
    for (const char* path : {"/home/alice/d\xE9/f", "/home/alice//d\xE9/f/", "//home/alice/d\xE9//f"})
        EXPECT_EQ(tracker.nodeAt(path), &file) << path;
    for (const char* path : {"", "/", "/home", "/home/alic", "/home/alice2/other", "home/alice/other",
                             "/home/alice/other/x", "/home/alice/d\xE8"})
        EXPECT_EQ(tracker.nodeAt(path), nullptr) << path;
    EXPECT_EQ(tracker.nodeAt("/home/alice/"), other.parent());

    const auto before = tracker.current();
    EXPECT_EQ(tracker.noteRemoved(Paths{"/home/alice/d\xE9", "/nowhere", "/home/alice/other"}), 2u);
    EXPECT_EQ(tracker.noteRemoved(Paths{"/home/alice/other"}), 0u);
    EXPECT_TRUE(tracker.current()->containsNodeOrAncestor(file));
    EXPECT_TRUE(before->isEmpty()) << "a set that somebody holds does not change";
    EXPECT_EQ(tracker.noteRestored(Paths{"/home/alice/d\xE9", "/home/alice/elsewhere"}), 1u);
    EXPECT_FALSE(tracker.current()->containsNodeOrAncestor(file));
    EXPECT_TRUE(tracker.current()->contains(other));

    FileTreeBuilder whole("/");
    whole.addFile(whole.root(), "x", 1);
    EXPECT_EQ(RemovalTracker(whole.finish()).nodeAt("/x")->name(), "x");
}

TEST(RemovalTracker, ThreadsMayNoteWhileOthersLook) {
    FileTreeBuilder builder("/r");
    Paths paths;
    for (int number = 0; number < 100; ++number) {
        builder.addFile(builder.root(), std::to_string(number), 1);
        paths.push_back("/r/" + std::to_string(number));
    }
    const auto root = builder.finish();
    RemovalTracker tracker(root);
    std::vector<std::thread> threads;
    for (std::size_t writer = 0; writer < 4; ++writer)
        threads.emplace_back([&, writer] {
            for (std::size_t index = writer; index < paths.size(); index += 4)
                tracker.noteRemoved(std::span(paths).subspan(index, 1));
        });
    for (std::size_t seen = 0; seen < paths.size();) {
        const auto removed = tracker.current();
        EXPECT_GE(removed->count(), seen);
        seen = removed->count();
        for (const FileNode* child : root->children())
            removed->containsNodeOrAncestor(*child);
    }
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
} // namespace tarnwell

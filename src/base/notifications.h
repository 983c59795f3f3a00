#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

// Change notifications of the stores. Each change is announced twice: to observers in this
// process ("Quillora.<name>DidChange") and to other processes by touching
// notifications/com.veldmoor.Quillora.<name>DidChange in the application-support folder, which
// the desktop app and the background service watch with inotify.
namespace quillora::base {

using ObserverToken = std::uint64_t;

// Calls `observer` on the posting thread after every change of `name` ("costLedger", "history").
// Safe from any thread.
ObserverToken addChangeObserver(std::string name, std::function<void()> observer);
void removeChangeObserver(ObserverToken token);

// Announces a change of `name` in `folder` (the application-support folder unless given). Never
// throws: the change itself has happened, and a listener that misses the signal catches up on its
// next read. Call it after the store's lock is released.
void postChange(std::string_view name);
void postChange(std::string_view name, const std::filesystem::path& folder);

// "notifications/com.veldmoor.Quillora.<name>DidChange" under `folder`.
std::filesystem::path changeSignalPath(const std::filesystem::path& folder, std::string_view name);

}  // namespace quillora::base

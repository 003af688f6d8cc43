#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// A new folder, removed with all that is in it.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return folder_; }

    /// Makes it the working directory as long as it lives.
    void Enter();

private:
    std::filesystem::path folder_;
    std::optional<std::filesystem::path> before_; ///< the working directory that was left
};

/// The bytes of a file; empty when it cannot be read.
std::string ReadFile(const std::filesystem::path& file);

void WriteFile(const std::filesystem::path& file, std::string_view content);

#pragma once

#include <cstdlib>
#include <memory>
#include <string>

// The frames of native messaging: a length of 4 bytes, then as many bytes of text.

struct FreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
};

/// A text of a frame, ended by a zero byte.
using FrameText = std::unique_ptr<char[], FreeDeleter>;

/// Reads the length of the next frame on standard input, in the machine's byte order. False at the end of the
/// input and when the length is cut short.
bool ReadFrameLength(int& length);

/// Reads the text of a frame; one that is cut short ends where the input does. Throws std::exception when
/// there is no memory for it, or when it is beyond the limit.
FrameText ReadFrameText(int length);

/// Keeps standard output for frames alone: what modules, threads and handlers write to descriptor 1 goes to
/// standard error from now on. To be called once, before anything is loaded or opened; ends the host where
/// that cannot be had.
void KeepStdoutForFrames();

/// Writes a frame to standard output, lowest byte of the length first, and flushes it. Whether it arrives is
/// seen at the next read.
void WriteFrame(const std::string& text);

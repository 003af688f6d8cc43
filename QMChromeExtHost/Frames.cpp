#include "Frames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

namespace {

/// From this length on the size of the receive buffer would not fit 32 bits.
constexpr int kMaxMessageBytes = (1 << 28) - 1;

/// The receive buffer is this many times the message: the rest stays zero and ends the text.
constexpr std::size_t kBufferFactor = 8;

/// The length prefix of a frame, in the machine's byte order.
union U32_U8 {
    std::int64_t u32;
    std::uint8_t u8[4];
};

/// Standard output, once it is kept; nobody else in the process knows this stream or its descriptor.
std::FILE* kept = nullptr;

/// The next file or socket would be taken for one that is closed.
void OpenStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", O_RDWR); // becomes the lowest that is free: this one
}

} // namespace

bool ReadFrameLength(int& length) {
    U32_U8 lenBuf;
    lenBuf.u32 = 0;
    const std::size_t iSize = std::fread(lenBuf.u8, 1, sizeof lenBuf.u8, stdin);
    length = static_cast<int>(lenBuf.u32);
    return iSize == sizeof lenBuf.u8;
}

FrameText ReadFrameText(int length) {
    if (length > kMaxMessageBytes)
        throw std::length_error("a message of " + std::to_string(length) + " bytes");
    const auto size = static_cast<std::size_t>(length);
    // calloc, not malloc and memset: the pages that the message does not reach are never touched.
    FrameText text(static_cast<char*>(std::calloc(size, kBufferFactor)));
    if (!text)
        throw std::bad_alloc();
    // A short read leaves the text shorter: the zeros end it.
    [[maybe_unused]] const std::size_t received = std::fread(text.get(), 1, size, stdin);
    return text;
}

void KeepStdoutForFrames() {
    OpenStandardDescriptors();
    const int descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    kept = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
    if (kept == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        std::exit(EXIT_FAILURE);
}

void WriteFrame(const std::string& text) {
    const auto respLen = static_cast<std::uint32_t>(std::strlen(text.c_str()));
    unsigned char bytes[4];
    for (unsigned i = 0; i < sizeof bytes; ++i)
        bytes[i] = static_cast<unsigned char>(respLen >> (8 * i));
    std::FILE* const out = kept != nullptr ? kept : stdout;
    std::fwrite(bytes, 1, sizeof bytes, out);
    std::fwrite(text.data(), 1, respLen, out);
    std::fflush(out);
}

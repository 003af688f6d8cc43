#include "CkByteData.h"

#include "TextEncoding.h"

#include <utility>

void CkByteData::appendStr(std::string text) {
    if (bytes_.empty())
        bytes_ = std::move(text);
    else
        bytes_ += text;
}

void CkByteData::appendEncoded(std::string_view text, const char* encoding) {
    AppendDecodedText(bytes_, text, encoding);
}

std::string CkByteData::getEncoded(const char* encoding) const { return EncodeText(bytes_, encoding); }

const char* CkByteData::getData() const { return bytes_.c_str(); }

const unsigned char* CkByteData::getRange(std::size_t index, std::size_t count) const {
    if (index > bytes_.size() || count > bytes_.size() - index)
        return nullptr;
    return reinterpret_cast<const unsigned char*>(bytes_.c_str()) + index;
}

std::size_t CkByteData::getSize() const { return bytes_.size(); }

#include "CkBinData.h"

#include "TextEncoding.h"

void CkBinData::AppendByte(unsigned char byte) { bytes_ += static_cast<char>(byte); }

std::string CkBinData::getEncoded(const char* encoding) const { return EncodeText(bytes_, encoding); }

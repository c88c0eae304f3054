// Header text and body bytes to standard output.
#include "velm/writers.h"
#include "writers/write_all.h"

namespace {

int WriteBytes(const char* data, std::size_t length) {
  iovec part{const_cast<char*>(data), length};
  return oculora::WriteAll(&part, 1) ? 0 : -1;
}

}  // namespace

int WriteStdOutBase::WriteResponse(const char* data, int length) {
  return length < 0 ? -1 : WriteBytes(data, static_cast<std::size_t>(length));
}

int WriteWithHeader::WriteHeader(QmHttpClient*) { return WriteBytes(m_Header.data(), m_Header.size()); }

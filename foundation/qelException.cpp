#include "foundation/qelException.h"

namespace qel {

Exception::Exception(const String& message) : m_message(message), m_utf8(message.getUTF8String()) {}

HashKeyMissing::HashKeyMissing(const String& key)
    : Exception(String("hash key missing: ") + key), m_key(key) {}

} // namespace qel

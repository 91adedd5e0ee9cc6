// QELValue: the value of a mixer control: nothing, int, unsigned int, bool, or an array
// of unsigned int.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelString.h"

#include <variant>

class LIBAUDIO_API QELValue {
public:
    QELValue() = default;
    QELValue(int value) : m_value(value) {}
    QELValue(unsigned int value) : m_value(value) {}
    QELValue(bool value) : m_value(value) {}
    QELValue(const qel::Array<unsigned int>& value) : m_value(value) {}

    bool isEmpty() const { return m_value.index() == 0; }
    bool isArray() const { return std::holds_alternative<qel::Array<unsigned int>>(m_value); }
    bool isBool() const { return std::holds_alternative<bool>(m_value); }
    // Each get answers false, leaving out as it was, when the value holds another kind.
    bool get(qel::Array<unsigned int>& out) const;
    bool get(bool& out) const;
    bool get(int& out) const;
    bool get(unsigned int& out) const;

    // Numbers in hexadecimal, arrays comma-separated, with "0x" before each number when
    // prefixed; an empty value gives an empty string.
    qel::String toHexString(bool prefixed) const;

    bool operator==(const QELValue& other) const { return m_value == other.m_value; }
    bool operator!=(const QELValue& other) const { return !(*this == other); }

private:
    std::variant<std::monostate, int, unsigned int, bool, qel::Array<unsigned int>> m_value;
};

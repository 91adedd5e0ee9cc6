// COMInitializer: initializes the component-model runtime for the calling thread for the
// life of the scope, and uninitializes only what it initialized.
#pragma once

#include "foundation/export.h"
#include "platform/win32.h"

class LIBAUDIO_API COMInitializer {
public:
    COMInitializer();
    ~COMInitializer();
    COMInitializer(const COMInitializer&) = delete;
    COMInitializer& operator=(const COMInitializer&) = delete;

    HRESULT result() const { return m_result; }

private:
    HRESULT m_result;
};

#include "COM/comptr.h"
#include "foundation/qelLog.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("comptr")
}

COMInitializer::COMInitializer() : m_result(E_FAIL) {
    QEL_TRACE_SCOPE("COMInitializer::COMInitializer");
    m_result = CoInitialize(nullptr);
    QEL_DEBUG("CoInitialize returns ", qel::Hex{(unsigned long long)(DWORD)m_result});
}

COMInitializer::~COMInitializer() {
    if (m_result < 0) {
        return;
    }
    try {
        CoUninitialize();
    } catch (...) {
        QEL_DEBUG("The uninitialization of the COM object created an excecption.");
    }
}

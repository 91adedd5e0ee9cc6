// A fixed list of parts, as EnumPartsIncoming, EnumPartsOutgoing and GetSignalPath give.
#include "platform/CComPtr.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyObjects.h"

#include <vector>

namespace sim {

namespace {

class PartsList final : public ComObject<PartsList, IPartsList> {
public:
    explicit PartsList(std::vector<CComPtr<IPart>> parts) : m_parts(std::move(parts)) {}

    HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        *count = UINT(m_parts.size());
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetPart(UINT index, IPart** part) override {
        if (!part) {
            return E_POINTER;
        }
        *part = nullptr;
        if (index >= m_parts.size()) {
            return E_INVALIDARG;
        }
        return m_parts[index].CopyTo(part);
    }

private:
    const std::vector<CComPtr<IPart>> m_parts;
};

} // namespace

IPartsList* createPartsList(const model::Machine& machine,
                            const std::vector<model::PartRef>& parts) {
    std::vector<CComPtr<IPart>> made;
    for (const model::PartRef& ref : parts) {
        if (const model::Part* part = machine.findPart(ref)) {
            made.emplace_back();
            made.back().Attach(createPart(ref, part->kind));
        }
    }
    return PartsList::create(std::move(made));
}

} // namespace sim

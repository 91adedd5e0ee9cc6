// The property store contents of an endpoint, derived from the model: what Windows keeps
// in the endpoint's registry key, with the model's overrides applied.
#pragma once

#include "platform/model/Machine.h"
#include "platform/win32.h"

#include <map>

namespace sim {

using PropertyMap = std::map<model::PropertyKey, model::PropertyValue>;

PropertyMap endpointProperties(const model::Machine& machine, const model::Endpoint& endpoint);
// The store of an adapter device (GetDevice on a topology filter's id): the names of the
// adapter whose endpoints the filter's connections lead to; empty when they lead to none.
PropertyMap adapterDeviceProperties(const model::Machine& machine, const std::string& deviceId);

model::PropertyKey toModelKey(const PROPERTYKEY& key);
PROPERTYKEY toPlatformKey(const model::PropertyKey& key);
// "{fmtid},pid", the form fault targets use for one property.
std::string keyText(const PROPERTYKEY& key);
std::string guidText(const GUID& guid);

} // namespace sim

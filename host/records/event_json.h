// An event as the web API and the commands show it.
#pragma once

#include <json/value.h>

#include "records/events.h"

namespace oculora {

// `camera` is its camera's name. Of one being recorded length and bytes are of this moment: looks at its file.
Json::Value DescribeEvent(EventRecord event, const std::string& camera);

}  // namespace oculora

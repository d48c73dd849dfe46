// Feeds arbitrary bytes to the project metadata decoder and its date parser.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "project/project_metadata.h"

using namespace quillo::project;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    (void)parseISO8601(text);
    auto metadata = decodeMetadata(text);
    if (!metadata) {
        return 0;
    }
    (void)metadata->createdDate();
    auto again = decodeMetadata(encodeMetadata(*metadata));
    if (again && !(*again == *metadata)) {
        std::abort();
    }
    return 0;
}

#include "util/dated_names.h"

namespace brisolt {

DatedName datedName(std::string_view name, std::string_view stamp) {
    DatedName result{{}, name.size() < datedNameLimit};
    for (char character : name.substr(0, datedNameLimit)) {
        if (character == '.')
            result.text += stamp;
        result.text += character;
    }
    if (result.text.size() >= datedNameRoom) {
        result.text.resize(datedNameRoom - 1);
        result.complete = false;
    }
    return result;
}

} // namespace brisolt

#include "NewCustomerFromConferenceDTO.h"

namespace VistrelKit {

Json NewCustomerFromConferenceDTO::toJson() const
{
    Json object = Json::object();
    const std::pair<const char *, const std::optional<QString> *> fields[] = {
        {"firstName", &firstName},
        {"lastName", &lastName},
        {"email", &email},
        {"phoneNumber", &phoneNumber},
        {"joinedTimestamp", &joinedTimestamp},
    };
    for (const auto &[key, field] : fields) {
        if (*field)
            object[key] = JsonUtils::fromQString(**field);
    }
    return object;
}

} // namespace VistrelKit

#include "Api/ActiveUserDTO.h"

namespace VistrelKit {

Json ActiveUserDTO::toJson(const ActiveUser &user)
{
    Json object = Json::object();
    const auto put = [&object](const char *key, const std::optional<QString> &value) {
        if (value)
            object[key] = JsonUtils::fromQString(*value);
    };
    put("id", user.id);
    put("firstname", user.firstname);
    put("lastname", user.lastname);
    put("email", user.email);
    if (user.tags) {
        Json tags = Json::array();
        for (const QString &tag : *user.tags)
            tags.push_back(JsonUtils::fromQString(tag));
        object["tags"] = std::move(tags);
    }
    put("assignedUser", user.assignedUser);
    return object;
}

} // namespace VistrelKit

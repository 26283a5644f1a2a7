#include <Vistrel/OrvaneUser.h>

#include "Facade/Kit.h"
#include "User/User.h"

namespace VistrelKit {

void OrvaneUser::tag(const ActiveUser &user)
{
    if (auto *service = Kit::container().resolveOrLog<User>())
        service->tag(user);
}

void OrvaneUser::clear()
{
    if (auto *service = Kit::container().resolveOrLog<User>())
        service->clear();
}

} // namespace VistrelKit

#include "DemoUser.h"

#include <Vistrel/ActiveUser.h>
#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneUser.h>

using namespace Qt::StringLiterals;

void DemoUser::signIn()
{
    VistrelKit::ActiveUser user;
    user.id = QString::fromLatin1(Id);
    user.firstname = u"Alex"_s;
    user.lastname = u"Morgan"_s;
    user.email = u"alex.morgan@example.com"_s;
    user.tags = QStringList{u"premium"_s};
    VistrelKit::Orvane::user()->tag(user);
}

VistrelKit::ConferenceProperties DemoUser::customer()
{
    VistrelKit::ConferenceProperties customer;
    customer.customerId = QString::fromLatin1(Id);
    customer.firstname = u"Alex"_s;
    customer.lastname = u"Morgan"_s;
    customer.displayName = u"Alex Morgan"_s;
    customer.email = u"alex.morgan@example.com"_s;
    return customer;
}

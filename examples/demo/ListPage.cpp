#include "ListPage.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

ListPage::ListPage(QWidget *parent)
    : QWidget(parent)
{
    auto *title = new QLabel(u"Accounts"_s, this);
    title->setStyleSheet(u"font-size: 24px; font-weight: bold;"_s);

    auto *accounts = new QListWidget(this);
    accounts->addItems({u"Everyday account    2,140.50"_s, u"Savings account    18,902.00"_s,
                        u"Credit card    -312.75"_s, u"Travel fund    1,250.00"_s,
                        u"Joint account    4,031.20"_s});
    // Large rows are easy to tap on a phone-sized screen and on the console's image.
    accounts->setStyleSheet(u"QListWidget::item { padding: 12px; }"_s);

    auto *settings = new QPushButton(u"Settings"_s, this);
    auto *signOut = new QPushButton(u"Sign out"_s, this);
    connect(settings, &QPushButton::clicked, this, &ListPage::settingsRequested);
    connect(signOut, &QPushButton::clicked, this, &ListPage::signOutRequested);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(signOut);
    buttons->addStretch();
    buttons->addWidget(settings);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->addWidget(title);
    layout->addWidget(accounts);
    layout->addLayout(buttons);
}

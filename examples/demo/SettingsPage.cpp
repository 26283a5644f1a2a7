#include "SettingsPage.h"

#include <Vistrel/Orvane.h>
#include <Vistrel/OrvaneVistrel.h>

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

SettingsPage::SettingsPage(QWidget *parent)
    : QWidget(parent)
    , m_tag(new QLineEdit(this))
{
    auto *title = new QLabel(u"Settings"_s, this);
    title->setStyleSheet(u"font-size: 24px; font-weight: bold;"_s);

    auto *notifications = new QCheckBox(u"Notifications"_s, this);
    notifications->setChecked(true);
    auto *statements = new QCheckBox(u"Paper statements"_s, this);
    auto *language = new QComboBox(this);
    language->addItems({u"English"_s, u"Deutsch"_s, u"Français"_s});

    m_tag->setPlaceholderText(u"e.g. needs help with transfers"_s);
    auto *sendTag = new QPushButton(u"Tag session"_s, this);
    connect(sendTag, &QPushButton::clicked, this, &SettingsPage::sendTag);
    connect(m_tag, &QLineEdit::returnPressed, this, &SettingsPage::sendTag);
    auto *tagRow = new QHBoxLayout;
    tagRow->addWidget(m_tag);
    tagRow->addWidget(sendTag);

    auto *form = new QFormLayout;
    form->addRow(notifications);
    form->addRow(statements);
    form->addRow(u"Language"_s, language);
    form->addRow(u"Session tag"_s, tagRow);

    auto *back = new QPushButton(u"Back"_s, this);
    connect(back, &QPushButton::clicked, this, &SettingsPage::backRequested);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(back);
    buttons->addStretch();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 24);
    layout->setSpacing(16);
    layout->addWidget(title);
    layout->addLayout(form);
    layout->addStretch();
    layout->addLayout(buttons);
}

void SettingsPage::sendTag()
{
    const QString text = m_tag->text().trimmed();
    if (text.isEmpty())
        return;
    // The agent sees the tag beside the session; the kit logs it when no session runs.
    VistrelKit::Orvane::vistrel()->tag(text);
    m_tag->clear();
}

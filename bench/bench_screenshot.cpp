// Main-thread cost of one screenshot tick — render, privacy masking, scaling to a third, JPEG
// encoding, comparison with the last screenshot — for windows of ordinary widgets at three sizes,
// with 0 and 5 private views. Prints the median milliseconds per stage and per tick, and the
// tick's share of the 0.3 s screenshot period.
#include "Config/IOSConfig.h"
#include "Monitoring/PrivacyUtils.h"
#include "Monitoring/ViewMonitor.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
constexpr int Ticks = 40;

// A form, a list and a table: what an ordinary business screen holds.
std::unique_ptr<QWidget> makeWindow(QSize size, int privateViews)
{
    auto window = std::make_unique<QWidget>();
    auto *layout = new QHBoxLayout(window.get());
    auto *form = new QGroupBox(u"Customer"_s);
    auto *formLayout = new QFormLayout(form);
    for (int i = 0; i < 8; ++i) {
        auto *edit = new QLineEdit(u"Value %1"_s.arg(i));
        if (i < privateViews)
            edit->setProperty(PrivacyUtils::TagProperty, 100 + i);
        formLayout->addRow(u"Field %1"_s.arg(i), edit);
    }
    formLayout->addRow(new QCheckBox(u"Subscribe"_s));
    auto *combo = new QComboBox;
    combo->addItems({u"One"_s, u"Two"_s});
    formLayout->addRow(u"Plan"_s, combo);
    formLayout->addRow(new QPushButton(u"Save"_s));
    layout->addWidget(form);

    auto *list = new QListWidget;
    for (int i = 0; i < 40; ++i)
        list->addItem(u"Order #%1 — shipped"_s.arg(1000 + i));
    layout->addWidget(list);

    auto *model = new QStandardItemModel(30, 4, window.get());
    for (int r = 0; r < 30; ++r)
        for (int c = 0; c < 4; ++c)
            model->setItem(r, c, new QStandardItem(u"%1:%2"_s.arg(r).arg(c)));
    auto *table = new QTableView;
    table->setModel(model);
    layout->addWidget(table, 2);

    window->resize(size);
    window->show();
    return window;
}

double median(std::vector<qint64> &samples)
{
    std::sort(samples.begin(), samples.end());
    return double(samples[samples.size() / 2]) / 1e6;
}

void measure(QSize size, int privateViews, bool changing)
{
    auto window = makeWindow(size, privateViews);
    QApplication::processEvents();
    IOSConfig config;
    for (int i = 0; i < privateViews; ++i)
        config.blacklist.append(QString::number(100 + i));

    std::vector<qint64> render, mask, scale, encode, compare, total;
    QByteArray last;
    auto *label = window->findChild<QLineEdit *>();
    for (int tick = 0; tick < Ticks; ++tick) {
        if (changing)
            label->setText(u"Value %1"_s.arg(tick));
        QApplication::processEvents();
        QElapsedTimer timer;
        timer.start();
        QImage image = ViewMonitor::render(window.get());
        const qint64 t1 = timer.nsecsElapsed();
        PrivacyUtils::maskPrivateViews(image, window.get(), config);
        const qint64 t2 = timer.nsecsElapsed();
        const QImage scaled = ViewMonitor::scaleToThird(image);
        const qint64 t3 = timer.nsecsElapsed();
        const QByteArray bytes = ViewMonitor::encodeJpeg(scaled);
        const qint64 t4 = timer.nsecsElapsed();
        const bool same = bytes == last;
        last = bytes;
        const qint64 t5 = timer.nsecsElapsed();
        Q_UNUSED(same);
        render.push_back(t1);
        mask.push_back(t2 - t1);
        scale.push_back(t3 - t2);
        encode.push_back(t4 - t3);
        compare.push_back(t5 - t4);
        total.push_back(t5);
    }
    const double tick = median(total);
    std::printf("%4dx%-4d  %7s  %d private  %7.2f %6.2f %6.2f %7.2f %7.3f  %7.2f ms  %5.1f%%  "
                "(%lld bytes)\n",
                size.width(), size.height(), changing ? "changing" : "unchanged", privateViews,
                median(render), median(mask), median(scale), median(encode), median(compare), tick,
                tick / 300.0 * 100.0, static_cast<long long>(last.size()));
}
} // namespace

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    std::printf("Screenshot tick, median of %d ticks (ms): render, mask, scale, encode, compare, "
                "whole tick, share of the 0.3 s period\n",
                Ticks);
    for (const QSize size : {QSize(800, 600), QSize(1280, 800), QSize(1920, 1080)}) {
        for (const int privateViews : {0, 5})
            measure(size, privateViews, true);
        measure(size, 0, false);
    }
    return 0;
}

// Cost of building and serialising one report of each kind, and of one flush of 1, 10 and 100
// queued reports (one of them a 20 KB screenshot): serialising the batch alone, and posting it
// to the local service over loopback HTTP. Also the cost of reading an agent command object of
// 10, 10 000 and 100 000 keys, which must grow linearly.
#include "Api/HttpUtil.h"
#include "Config/ApplicationConfigWrapper.h"
#include "Core/JsonUtils.h"
#include "LocalService.h"
#include "Network/MessageSender.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QRandomGenerator>

#include <benchmark/benchmark.h>

#include <iostream>

using namespace Qt::StringLiterals;
using namespace VistrelKit;

namespace {
const qint64 startTime = 1'700'000'000'000;

QByteArray screenshotBytes()
{
    QByteArray bytes(20 * 1024, Qt::Uninitialized);
    QRandomGenerator generator(42); // incompressible, like JPEG data
    generator.fillRange(reinterpret_cast<quint32 *>(bytes.data()), bytes.size() / 4);
    return bytes;
}

ProtoMessage report(int kind)
{
    static const QByteArray image = screenshotBytes();
    ActiveUser user;
    switch (kind) {
    case 0:
        return MessageSender::pingReport(startTime);
    case 1:
        return MessageSender::screenshotReport(image, startTime);
    case 2:
        return MessageSender::clickReport(300.5, 600.25, startTime);
    case 3:
        return MessageSender::pageChangeReport(u"SignInPage"_s, startTime);
    case 4:
        return MessageSender::tagReport(u"checkout-started"_s, startTime);
    default:
        user.id = u"42"_s;
        user.firstname = u"Ada"_s;
        user.lastname = u"Lovelace"_s;
        user.email = u"ada@example.com"_s;
        user.tags = QStringList{u"vip"_s, u"beta"_s};
        return MessageSender::userTagReport(user, startTime);
    }
}

const char *kindName(int kind)
{
    static const char *names[] = {"ping", "screenshot20KB", "click", "pageChange",
                                  "tag",  "userTag"};
    return names[kind];
}

std::string serialise(const QList<ProtoMessage> &queue)
{
    ProtoMessageList list;
    for (const ProtoMessage &message : queue)
        *list.add_messages() = message;
    std::string bytes;
    list.SerializePartialToString(&bytes);
    return bytes;
}

QList<ProtoMessage> queueOf(int count)
{
    QList<ProtoMessage> queue;
    for (int i = 0; i < count; ++i)
        queue.append(report(i == count / 2 ? 1 : (i % 6 == 1 ? 0 : i % 6)));
    return queue;
}

void buildAndSerialise(benchmark::State &state)
{
    const int kind = int(state.range(0));
    state.SetLabel(kindName(kind));
    for (auto _ : state) {
        const std::string bytes = serialise({report(kind)});
        benchmark::DoNotOptimize(bytes.data());
    }
}
BENCHMARK(buildAndSerialise)->DenseRange(0, 5);

void flushSerialise(benchmark::State &state)
{
    const QList<ProtoMessage> queue = queueOf(int(state.range(0)));
    size_t size = 0;
    for (auto _ : state) {
        const std::string bytes = serialise(queue);
        size = bytes.size();
        benchmark::DoNotOptimize(bytes.data());
    }
    state.counters["bytes"] = double(size);
}
BENCHMARK(flushSerialise)->Arg(1)->Arg(10)->Arg(100);

void flushPost(benchmark::State &state)
{
    VistrelService::LocalService service;
    service.start();
    ApplicationConfigWrapper config;
    HttpUtil http(&config);
    const QString url = u"http://"_s + service.hostAndPort() +
                        u"/api/ix/m?id=bench&sId=s&tId=t&vId=v&url=Bench&fsTy=l"_s;
    const QList<ProtoMessage> queue = queueOf(int(state.range(0)));
    http.get(url, [](auto &&...) {}); // open the visit's channel
    for (auto _ : state) {
        const std::string bytes = serialise(queue);
        QEventLoop loop;
        http.post(url, QByteArray(bytes.data(), qsizetype(bytes.size())),
                  [&loop](auto &&...) { loop.quit(); });
        loop.exec();
    }
}
BENCHMARK(flushPost)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMicrosecond);

void parseCommand(benchmark::State &state)
{
    QByteArray text = "{";
    for (int i = 0; i < state.range(0); ++i)
        text += "\"k" + QByteArray::number(i) + "\":0,";
    text += R"("x":300,"y":600})";
    for (auto _ : state) {
        const auto value = JsonUtils::parse(text);
        benchmark::DoNotOptimize(value->size());
    }
    state.counters["bytes"] = double(text.size());
}
BENCHMARK(parseCommand)->Arg(10)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    // Figures on stderr: the kit logs its requests on stdout (run with >/dev/null).
    benchmark::ConsoleReporter reporter;
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

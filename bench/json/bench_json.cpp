// Throughput of the JSON reader and writer against RapidJSON and nlohmann-json
// on the documents the controller handles: the conversion queue, the folders
// file and a mixed text with escapes and non-ASCII characters.
//
// Every figure is MB per second of the document's UTF-8 text, so the writers
// are compared per document although each lays out its text differently.
// "read" includes decoding the UTF-8 bytes into a QString, "write" includes
// encoding the result back to UTF-8, because callers hold UTF-8 files; the
// "parse only" and "write only" rows leave that conversion out.

#include "json/JsonValue.h"

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

namespace {

volatile size_t g_sink = 0; // keeps results observable to the optimiser

double secondsPerRun(const std::function<void()> &run, double minRoundSeconds)
{
    using Clock = std::chrono::steady_clock;
    double best = 1e30;
    for (int round = 0; round < 5; ++round) {
        const auto start = Clock::now();
        int runs = 0;
        double elapsed = 0;
        do {
            run();
            ++runs;
            elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        } while (elapsed < minRoundSeconds);
        best = std::min(best, elapsed / runs);
    }
    return best;
}

QString queueName(int i)
{
    static const char *const words[] = {"Holiday", "Birthday", "Concert", "Interview", "Lecture", "Trailer"};
    return QStringLiteral("%1 %2 (%3).mkv").arg(QLatin1String(words[i % 6])).arg(i).arg(2000 + i % 24);
}

QByteArray conversionQueueText()
{
    JsonArray queue;
    queue.reserve(10000);
    for (int i = 0; i < 10000; ++i) {
        queue.push_back(JsonObject{{"id", JsonValue(QStringLiteral("item-%1").arg(i, 6, 10, QLatin1Char('0')))},
                                   {"name", JsonValue(queueName(i))}});
    }
    JsonObject converted{{"item", JsonObject{{"id", "item-current"}, {"name", "Current file.avi"}}},
                         {"conversionState", JsonObject{{"percentDone", 42.5}, {"eta", 120}, {"paused", false}}}};
    const JsonObject document{{"conversion", JsonObject{{"convertedItem", converted}, {"queue", queue}}}};
    return jsonStringValue(document).toUtf8();
}

QByteArray foldersText()
{
    JsonArray folders;
    folders.reserve(10000);
    for (int i = 0; i < 10000; ++i) {
        const bool playlist = i % 5 == 0;
        folders.push_back(JsonObject{
            {"name", JsonValue(QStringLiteral("Folder %1").arg(i))},
            {"type", playlist ? "iTunesPlaylist" : "DiskFolder"},
            {"id", JsonValue(playlist ? QStringLiteral("5F3A%1C2B").arg(i, 8, 16, QLatin1Char('0'))
                                      : QStringLiteral("/home/someone/Videos/Collection %1/Folder %2").arg(i / 100).arg(i))},
            {"folderId", JsonValue(QStringLiteral("%1").arg(qint64(i) * 2654435761LL % 1000000007LL))}});
    }
    return jsonStringValue(JsonObject{{"folders", folders}}).toUtf8();
}

// Compact standard JSON as another program would print it: raw UTF-8 beside
// escapes of every kind, numbers of several shapes, nesting.
QByteArray mixedText()
{
    static const char *const titles[] = {
        "Caf\xc3\xa9 \\\"Noir\\\" \\u00e9dition", "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe3\x81\xae\xe5\x90\x8d\xe5\x89\x8d",
        "Line one\\nLine two\\tTabbed", "\xd0\x9f\xd1\x80\xd0\xb8\xd0\xb2\xd0\xb5\xd1\x82 \xf0\x9f\x8e\xac \\ud83c\\udfac",
        "plain ascii title number", "slash \\/ back\\\\slash \\r\\n end"};
    std::string text = "{\"library\":{\"version\":3,\"generated\":\"2024-05-01T10:00:00Z\",\"entries\":[";
    int i = 0;
    while (text.size() < 1000000) {
        if (i)
            text += ',';
        text += "{\"title\":\"";
        text += titles[i % 6];
        text += "\",\"path\":\"/media/\xc3\xbcser/Vid\xc3\xa9os/";
        text += std::to_string(i);
        text += ".mp4\",\"size\":";
        text += std::to_string(1000003LL * i);
        text += ",\"rating\":";
        text += std::to_string(i % 10) + "." + std::to_string(i % 7) + "5";
        text += ",\"offset\":-";
        text += std::to_string(i % 1000) + "e-3";
        text += ",\"watched\":";
        text += i % 3 ? "true" : "false";
        text += ",\"subtitle\":null,\"tags\":[\"film\",\"";
        text += i % 2 ? "s\xc3\xa9rie" : "doc";
        text += "\",";
        text += std::to_string(i);
        text += "]}";
        ++i;
    }
    text += "]}}";
    return QByteArray::fromStdString(text);
}

struct Row
{
    const char *name;
    double ours;
    double rapid; // 0 when RapidJSON has no counterpart
    double nlohmann;
};

void printRow(const Row &row)
{
    auto ratio = [](double a, double b) { return b > 0 ? a / b : 0.0; };
    std::printf("  %-32s %9.1f %9.1f %9.1f   %6.2fx %6.2fx\n", row.name, row.ours, row.rapid, row.nlohmann,
                ratio(row.ours, row.rapid), ratio(row.ours, row.nlohmann));
}

void benchDocument(const char *title, const QByteArray &utf8, double minRound)
{
    const double megabytes = utf8.size() / 1e6;
    auto rate = [&](const std::function<void()> &run) { return megabytes / secondsPerRun(run, minRound); };

    const QString text = QString::fromUtf8(utf8);
    const std::optional<JsonObject> parsed = dictionaryWithJSONString(text);
    if (!parsed) {
        std::fprintf(stderr, "%s: our reader rejected the document\n", title);
        std::exit(1);
    }
    const std::string bytes = utf8.toStdString();
    rapidjson::Document rapidDom;
    rapidDom.Parse(bytes.data(), bytes.size());
    if (rapidDom.HasParseError()) {
        std::fprintf(stderr, "%s: RapidJSON rejected the document\n", title);
        std::exit(1);
    }
    const nlohmann::json nlohmannDom = nlohmann::json::parse(bytes);

    const double readOurs = rate([&] {
        const auto object = dictionaryWithJSONString(QString::fromUtf8(utf8));
        g_sink = g_sink + size_t(object->size());
    });
    const double parseOurs = rate([&] { g_sink = g_sink + size_t(dictionaryWithJSONString(text)->size()); });
    const double readRapid = rate([&] {
        rapidjson::Document d;
        d.Parse(bytes.data(), bytes.size());
        g_sink = g_sink + d.MemberCount();
    });
    const double readNlohmann = rate([&] { g_sink = g_sink + nlohmann::json::parse(bytes).size(); });

    const double writeOurs = rate([&] { g_sink = g_sink + size_t(jsonStringValue(*parsed).toUtf8().size()); });
    const double writeOnlyOurs = rate([&] { g_sink = g_sink + size_t(jsonStringValue(*parsed).size()); });
    const double writeRapid = rate([&] {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        rapidDom.Accept(writer);
        g_sink = g_sink + buffer.GetSize();
    });
    const double writeNlohmann = rate([&] { g_sink = g_sink + nlohmannDom.dump().size(); });

    std::printf("%s: %.2f MB UTF-8 (our layout %.2f MB)\n", title, megabytes,
                jsonStringValue(*parsed).toUtf8().size() / 1e6);
    std::printf("  %-32s %9s %9s %9s   %7s %7s\n", "MB/s", "ours", "rapidjson", "nlohmann", "/rapid", "/nlohm");
    printRow({"read (UTF-8 decode + parse)", readOurs, readRapid, readNlohmann});
    printRow({"parse only (text in QString)", parseOurs, readRapid, readNlohmann});
    printRow({"write (+ UTF-8 encode)", writeOurs, writeRapid, writeNlohmann});
    printRow({"write only (into QString)", writeOnlyOurs, writeRapid, writeNlohmann});
}

// One read and release of the parsed tree per library, each in a function of
// its own so that an instruction counter can be pointed at it:
//   valgrind --tool=callgrind --toggle-collect='*profileOurs*' bench_json --profile
__attribute__((noinline)) void profileOurs(const QString &text)
{
    g_sink = g_sink + size_t(dictionaryWithJSONString(text)->size());
}

__attribute__((noinline)) void profileRapid(const std::string &bytes)
{
    rapidjson::Document d;
    d.Parse(bytes.data(), bytes.size());
    g_sink = g_sink + d.MemberCount();
}

int profile(const char *which)
{
    const QByteArray documents[] = {conversionQueueText(), foldersText(), mixedText()};
    for (int i = 0; i < 3; ++i) {
        if (which && *which && *which != 'a' + i)
            continue;
        const QString text = QString::fromUtf8(documents[i]);
        const std::string bytes = documents[i].toStdString();
        // A first round outside the counted functions, so that the allocator
        // is counted in the state a repeated read finds it in.
        g_sink = g_sink + size_t(dictionaryWithJSONString(text)->size());
        profileOurs(text);
        profileRapid(bytes);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    // "--profile [a|b|c]": a single parse of each document (or of one) by us
    // and by RapidJSON, for an instruction counter; no timing.
    if (argc > 1 && std::string(argv[1]) == "--profile")
        return profile(argc > 2 ? argv[2] : nullptr);
    // An optional argument sets the seconds per measuring round (default 0.2).
    const double minRound = argc > 1 ? std::max(0.01, std::atof(argv[1])) : 0.2;
    std::printf("Best of 5 rounds; ratios are ours divided by theirs.\n");
    benchDocument("(a) conversion queue, 10,000 items", conversionQueueText(), minRound);
    benchDocument("(b) folders file, 10,000 folders", foldersText(), minRound);
    benchDocument("(c) mixed members, escapes and non-ASCII", mixedText(), minRound);
    return 0;
}

// Times writing and reading back a folders file of 10,000 entries, the way the
// shared folders editor does after every change. Runs on a temporary $HOME.

#include "folders/Folder.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("HOME", QFile::encodeName(home.path()));

    constexpr int kFolders = 10000;
    constexpr int kRuns = 11;
    QList<Folder> folders;
    folders.reserve(kFolders);
    for (int i = 0; i < kFolders; ++i) {
        Folder folder;
        folder.setName(QStringLiteral("Folder number %1 é").arg(i));
        folder.setType(i % 3 == 0 ? Folder::ITunesPlaylist : Folder::DiskFolder);
        folder.setLocation(QStringLiteral("/home/someone/Videos/Series/Season %1/Folder %2").arg(i % 17).arg(i));
        folder.setFolderId(QStringLiteral("%1").arg(1000000 + i));
        folders.append(folder);
    }

    std::vector<double> save;
    std::vector<double> load;
    std::vector<double> total;
    for (int run = 0; run < kRuns; ++run) {
        QElapsedTimer timer;
        timer.start();
        Folder::saveFolders(folders);
        const qint64 saved = timer.nsecsElapsed();
        const QList<Folder> loaded = Folder::loadFolders();
        const qint64 both = timer.nsecsElapsed();
        if (loaded != folders) {
            std::fprintf(stderr, "bench_folders: read back %lld folders, not the %d written\n",
                         static_cast<long long>(loaded.size()), kFolders);
            return 1;
        }
        save.push_back(saved / 1e6);
        load.push_back((both - saved) / 1e6);
        total.push_back(both / 1e6);
    }
    const auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    const qint64 bytes = QFileInfo(Folder::foldersFileName()).size();
    std::printf("bench_folders: %d folders, file %lld bytes, median of %d runs\n", kFolders,
                static_cast<long long>(bytes), kRuns);
    std::printf("  saveFolders  %8.2f ms\n", median(save));
    std::printf("  loadFolders  %8.2f ms\n", median(load));
    std::printf("  total        %8.2f ms (goal under 50 ms)\n", median(total));
    return 0;
}

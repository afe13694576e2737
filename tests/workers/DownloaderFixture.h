// A downloader on its thread, a server that does as it is told, and a fragment in a directory of its own.
#ifndef TESTS_WORKERS_DOWNLOADERFIXTURE_H
#define TESTS_WORKERS_DOWNLOADERFIXTURE_H

#include "lab/ScriptedHttpServer.h"
#include "lab/TemporaryDirectory.h"
#include "update/FileFragment.h"
#include "workers/CurlSpy.h"
#include "workers/Downloader.h"
#include "workers/WorkerQueues.h"
#include "workitems/DownloadRequest.h"
#include <filesystem>

// Bytes that depend on their offset, so that a splice shows; `seed` tells images apart.
inline std::string patternOf(size_t size, unsigned seed = 0) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 31 + (i >> 8) * 17 + size_t{seed} * 101) & 0xFF);
    return bytes;
}

// An answer that ends, in whatever way, behind so many bytes of its head and its body.
inline lab::HttpScript cutAt(size_t headBytes, size_t bodyBytes, lab::HttpScript::End end) {
    lab::HttpScript script;
    script.headBytes = headBytes;
    script.bodyBytes = bodyBytes;
    script.end = end;
    return script;
}

class DownloaderFixture : protected WorkerQueues {
  protected:
    DownloaderFixture() {
        fragment.setFilename(directory.file("ContentPart-x"));
        fragment.setDownloadRange(1000, 1999); // 2000 bytes
        CurlSpy::get().takeOptions();
        start();
    }
    ~DownloaderFixture() {
        CurlSpy::get().lowSpeedSeconds = 0;
        CurlSpy::get().speedFactor = 1;
    }
    DownloaderFixture(const DownloaderFixture&) = delete;
    DownloaderFixture& operator=(const DownloaderFixture&) = delete;

    void start(std::chrono::microseconds pieceInterval = Downloader::PieceInterval,
               std::chrono::microseconds progressInterval = Downloader::ProgressInterval) {
        downloader = std::make_unique<Downloader>(in, out, pieceInterval, progressInterval);
        if (downloader->start() != 0)
            throw std::runtime_error("no thread");
    }

    // Queues the request as the master does.
    void queue(DownloadRequest& request) {
        request.setWithDownloader(true);
        in.add(&request);
    }

    // Queues the request and waits until it comes back.
    bool isAnswered(DownloadRequest& request) {
        queue(request);
        return isReturned(request) && request.isWithDownloader();
    }

    // Queues the request and waits until it is dropped.
    bool isDropped(DownloadRequest& request) {
        queue(request);
        return eventually([&] { return !request.isWithDownloader(); }) && out.size() == 0;
    }

    std::string onDisk() const { return directory.read(fragment.getFilename()); }

    const lab::TemporaryDirectory directory;
    const std::string image = patternOf(100000);
    lab::ScriptedHttpServer server{image};
    FileFragment fragment{FileFragment::ContentPart, 0, 0};
    std::unique_ptr<Downloader> downloader;
};

#endif

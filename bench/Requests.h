#pragma once

#include <string>

#include "bench/Composition.h"

// The road of a request from its bytes to the bytes of its answer, without sockets and without a disk.
namespace bench {

// A disk that takes everything and has nothing, so that only the server's own work is measured.
class NoDisk final : public io::filesystem::LoadFile,
                     public io::filesystem::SaveFile,
                     public io::filesystem::ExistsFile,
                     public io::filesystem::SizeFile,
                     public io::filesystem::RemoveFile {
public:
    util::Bytes load(const std::string&, std::uint32_t) const override { return {}; }
    void save(const std::string&, const util::Bytes&, std::uint32_t) const override {}
    bool exists(const std::string&) const noexcept override { return false; }
    std::uint64_t size(const std::string&, bool) const override { return 0; }
    void remove(const std::string&) const override {}
};

struct Requests {
    Requests() {
        answer(request("<texts>" + text(0) + text(1) + "</texts>",
                       "<writeCalls classifierName='news'><create id='c'/><addClass id='a' className='one'/>"
                       "<addClass id='b' className='two'/><train id='t' className='one' textId='0'/>"
                       "<train id='u' className='two' textId='1'/></writeCalls>"));
        std::string wide = "<writeCalls classifierName='wide'><create id='c'/>";
        for (int i = 0; i < 2000; ++i) {
            const std::string number = std::to_string(i);
            wide += "<addClass id='" + number + "' className='" + std::string(250, 'c') + number + "'/>";
        }
        answer(request("", wide + "</writeCalls>"));
    }

    static std::string text(int i) {
        const std::string id = std::to_string(i);
        return "<text id='" + id + "'>word" + std::to_string(i % 997) +
               " speaks of the weather and the sea, and number " + id + " of nothing else</text>";
    }
    static std::string request(const std::string& texts, const std::string& calls) {
        return requestAround(texts + calls);
    }
    // A request with one call for each of so many texts.
    static std::string requestOf(std::int64_t count, const std::string& opening, const std::string& call,
                                 const std::string& closing) {
        std::string texts = "<texts>";
        std::string calls = opening;
        for (int i = 0; i < count; ++i) {
            const std::string id = std::to_string(i);
            texts += text(i);
            calls += "<" + call + " id='" + id + "' textId='" + id + "'/>";
        }
        return request(texts + "</texts>", calls + closing);
    }

    // False if the request failed; a benchmark of failures would be fast and wrong.
    bool answer(const std::string& bytes) {
        std::string out;
        server.factory->create()->handle(out, bytes);
        return out.find("success=\"true\"") != std::string::npos;
    }

    NoDisk disk;
    Composition server{{disk, disk, disk, disk, disk}, "root"};
};

}  // namespace bench

#include "speech_engine.h"

#include <cstring>

#include "base/files.h"

namespace quillo::captions {
namespace {

void putU16(std::string& out, uint16_t v) {
    out.push_back(static_cast<char>(v & 0xff));
    out.push_back(static_cast<char>(v >> 8));
}

void putU32(std::string& out, uint32_t v) {
    putU16(out, static_cast<uint16_t>(v & 0xffff));
    putU16(out, static_cast<uint16_t>(v >> 16));
}

uint32_t getU32(const std::string& bytes, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) {
        v = (v << 8) | static_cast<uint8_t>(bytes[at + i]);
    }
    return v;
}

uint16_t getU16(const std::string& bytes, size_t at) {
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes[at]) |
                                 (static_cast<uint8_t>(bytes[at + 1]) << 8));
}

AppError notSpeechWav(const std::filesystem::path& path, const std::string& why) {
    return AppError("The sound file “" + path.filename().string() + "” could not be read.", why);
}

}  // namespace

Result<void> writeSpeechWav(const std::filesystem::path& path,
                            const std::vector<int16_t>& samples) {
    const auto dataBytes = static_cast<uint32_t>(samples.size() * sizeof(int16_t));
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    putU32(out, 36 + dataBytes);
    out += "WAVEfmt ";
    putU32(out, 16);
    putU16(out, 1);  // PCM
    putU16(out, 1);  // mono
    putU32(out, kSpeechSampleRate);
    putU32(out, kSpeechSampleRate * 2);
    putU16(out, 2);
    putU16(out, 16);
    out += "data";
    putU32(out, dataBytes);
    // WAV is little-endian, as is every machine this runs on.
    out.append(reinterpret_cast<const char*>(samples.data()), dataBytes);
    return writeFileAtomically(path, out, 0600);
}

Result<std::vector<int16_t>> readSpeechWav(const std::filesystem::path& path) {
    auto bytes = readFile(path);
    if (!bytes) {
        return bytes.error();
    }
    const std::string& b = *bytes;
    if (b.size() < 12 || b.compare(0, 4, "RIFF") != 0 || b.compare(8, 4, "WAVE") != 0) {
        return notSpeechWav(path, "not a WAV file");
    }
    bool formatSeen = false;
    for (size_t at = 12; at + 8 <= b.size();) {
        const std::string id = b.substr(at, 4);
        const size_t size = getU32(b, at + 4);
        const size_t body = at + 8;
        if (size > b.size() - body) {
            return notSpeechWav(path, "truncated " + id + " chunk");
        }
        if (id == "fmt ") {
            if (size < 16 || getU16(b, body) != 1 || getU16(b, body + 2) != 1 ||
                getU32(b, body + 4) != kSpeechSampleRate || getU16(b, body + 14) != 16) {
                return notSpeechWav(path, "not 16 kHz mono 16-bit PCM");
            }
            formatSeen = true;
        } else if (id == "data") {
            if (!formatSeen) {
                return notSpeechWav(path, "sound before its format");
            }
            std::vector<int16_t> samples(size / sizeof(int16_t));
            std::memcpy(samples.data(), b.data() + body, samples.size() * sizeof(int16_t));
            return samples;
        }
        at = body + size + (size & 1);
    }
    return notSpeechWav(path, "no sound data");
}

}  // namespace quillo::captions

#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// Recorded speech with its transcription (Debian's pocketsphinx-testdata), for the recognition
// tests and the transcription benchmark. Header-only, so benchmarks use it without GoogleTest.
namespace quillo::testing::librivox {

inline const std::filesystem::path kFolder = "/usr/share/pocketsphinx/test/data/librivox";

// The clip "sense_and_sensibility_01_austen_64kb-NNNN.wav" for NNNN = `number`.
inline std::filesystem::path clip(const std::string& number) {
    return kFolder / ("sense_and_sensibility_01_austen_64kb-" + number + ".wav");
}

// What the reader says in a clip, from the transcription.
inline std::vector<std::string> spoken(const std::string& number) {
    std::ifstream lines(kFolder / "transcription");
    std::vector<std::string> words;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("-" + number + ")") == std::string::npos) {
            continue;
        }
        std::istringstream in(line);
        for (std::string word; in >> word;) {
            if (word != "<s>" && word != "</s>" && word.front() != '(') {
                words.push_back(word);
            }
        }
    }
    return words;
}

// Word error rate: the edit distance between the word lists over the reference's length.
inline double wordErrorRate(const std::vector<std::string>& reference,
                            const std::vector<std::string>& heard) {
    std::vector<size_t> row(heard.size() + 1);
    for (size_t j = 0; j <= heard.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= reference.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= heard.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1,
                               diagonal + (reference[i - 1] == heard[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return reference.empty()
               ? 0
               : static_cast<double>(row[heard.size()]) / static_cast<double>(reference.size());
}

}  // namespace quillo::testing::librivox

// The hex dumps in docs/formats.md are those of the files that the library writes.
#include <fstream>
#include <map>
#include <sstream>

#include "support/FormatTest.h"

using kqtest::Bytes;
using kqtest::FormatTest;

namespace {

// A byte of a dump; -1 for "??", which stands for any.
using Dump = std::vector<int>;

void AddLine(Dump& dump, const std::string& line) {
    std::istringstream words(line);
    std::string word;
    words >> word;
    ASSERT_EQ(std::stoul(word, nullptr, 16), dump.size()) << line;
    Dump bytes;
    size_t times = 1;
    while (words >> word && word != "|") {
        if (word[0] == 'x')
            times = std::stoul(word.substr(1));
        else
            bytes.push_back(word == "??" ? -1 : int(std::stoul(word, nullptr, 16)));
    }
    for (; times > 0; --times) dump.insert(dump.end(), bytes.begin(), bytes.end());
}

// The dumps of the document by the file's name: fenced blocks that begin "```dump tiny.flm", of lines "offset bytes
// [xTimes] | what they are".
std::map<std::string, Dump> Dumps() {
    std::map<std::string, Dump> dumps;
    std::ifstream document(KQ_DOCS "/formats.md");
    Dump* open = nullptr;
    for (std::string line; std::getline(document, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind("```", 0) == 0)
            open = line.rfind("```dump ", 0) == 0 ? &dumps[line.substr(8)] : nullptr;
        else if (open)
            AddLine(*open, line);
    }
    return dumps;
}

void ExpectDump(const std::string& name, const Bytes& bytes) {
    Dump dump = Dumps()[name];
    ASSERT_EQ(dump.size(), bytes.size()) << name;
    for (size_t i = 0; i < bytes.size(); ++i) EXPECT_TRUE(dump[i] < 0 || dump[i] == bytes[i]) << name << " at " << i;
}

class FilmstripDoc : public FormatTest {
protected:
    FilmstripDoc() : FormatTest(kq::MakeFilmstripModule, "tiny.flm") {}
};

class ElectricImageDoc : public FormatTest {
protected:
    ElectricImageDoc() : FormatTest(kq::MakeElectricImageModule, "tiny.ei") {}
};

class VPBDoc : public FormatTest {
protected:
    VPBDoc() : FormatTest(kq::MakeVPBModule, "tiny.vpb") {}
};

}   // namespace

TEST_F(FilmstripDoc, TheDumpIsTheFileThatIsWritten) {
    clip->sourceRate = 25;
    ASSERT_TRUE(Create(1, 1));
    ASSERT_TRUE(Add({0xFF, 0x10, 0x20, 0x30}, 0));
    Close();
    ExpectDump("tiny.flm", Read());
}

TEST_F(ElectricImageDoc, TheDumpIsTheFileThatIsWritten) {
    clip->sourceRate = 25;
    clip->alphaMode = 0;
    ASSERT_TRUE(Create(3, 2));
    Bytes red = {0xFF, 0xC0, 0, 0}, blue = {0xFF, 0, 0, 0xC0}, pixels;
    for (const Bytes& pixel : {red, red, blue, red, blue, red}) pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    ASSERT_TRUE(Add(pixels, 0));
    Close();
    ExpectDump("tiny.ei", Read());
}

TEST_F(VPBDoc, TheDumpIsTheFileThatIsWritten) {
    ASSERT_TRUE(Create(2, 1));
    ASSERT_TRUE(Add({0xFF, 0x80, 0x80, 0x80, 0xFF, 0xFF, 0, 0}, 0));
    ExpectDump("tiny.vpb", Read());
}

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zarvo/hls/FileBufferedReader.h"
#include "zarvo/hls/FileLineReader.h"
#include "zarvo/hls/StreamReader.h"
#include "zarvo/hls/StringBufferedReader.h"
#include "zarvo/hls/URLBufferedReader.h"
#include "zarvo/platform/FatalError.h"

#include "support/TempHome.h"
#include "support/TestHttpServer.h"

namespace zarvo {
namespace {

std::vector<std::string> allLines(BufferedReader& reader) {
    std::vector<std::string> lines;
    while (auto line = reader.readLine()) {
        lines.push_back(*line);
    }
    EXPECT_EQ(reader.readLine(), std::nullopt) << "the end of input must stay the end";
    return lines;
}

using Lines = std::vector<std::string>;

TEST(StringBufferedReader, EveryUnicodeNewlineEndsALineOnItsOwnInShortAndLongText) {
    std::string longText;
    Lines longLines;
    for (int i = 0; i < 300; ++i) {
        longLines.push_back(std::string(static_cast<std::size_t>(i % 37), 'x') + std::to_string(i));
        longText += longLines.back() + (i % 3 == 0 ? "\n" : i % 3 == 1 ? "\r\n" : "\u2028");
        if (i % 3 == 1) {
            longLines.push_back("");
        }
    }
    longLines.push_back("");
    // Non-breaking space, e-acute and other non-ASCII text are not newlines.
    const std::pair<std::string, Lines> cases[] = {
        {"a\r\nb", {"a", "", "b"}},
        {"a\n", {"a", ""}},
        {"", {""}},
        {"1\v2\f3\r4\u00855\u20286\u20297", {"1", "2", "3", "4", "5", "6", "7"}},
        {"caf\u00e9\u00a0\u2027x\ny", {"caf\u00e9\u00a0\u2027x", "y"}},
        {"a\xff"
         "b\n\xe2\x80",
         {"a\uFFFDb", "\uFFFD"}},
        {longText, longLines}};
    for (const auto& [text, expected] : cases) {
        StringBufferedReader reader(text);
        EXPECT_EQ(allLines(reader), expected) << text.substr(0, 20);
    }
}

class FileReaders : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& contents) {
        auto path = home_.path() / name;
        std::ofstream(path, std::ios::binary) << contents;
        return path.string();
    }
    test::TempHome home_;
};

TEST_F(FileReaders, SplitAtLineFeedsOnlyAndKeepLongLinesWhole) {
    std::string longLine(10000, 'z');
    longLine[4095] = '\xc3';  // a two-byte character across the first chunk boundary
    longLine[4096] = '\xa9';
    const std::pair<std::string, Lines> cases[] = {
        {"one\ntwo\r\nthree", {"one", "two\r", "three"}},
        {"one\n\ntwo\n", {"one", "", "two"}},
        {"", {}},
        {"a\n" + longLine + "\nb", {"a", longLine, "b"}}};
    for (const auto& [text, expected] : cases) {
        FileBufferedReader reader(write("a.m3u8", text));
        EXPECT_EQ(allLines(reader), expected) << text.substr(0, 20);
    }
}

TEST_F(FileReaders, StreamReaderHonoursDelimiterAndChunkSize) {
    auto reader =
        StreamReader::make(write("d.txt", "a--b----c"), "--", StreamReader::Encoding::utf8, 3);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->nextLine(), "a");
    EXPECT_EQ(reader->nextLine(), "b");
    EXPECT_EQ(reader->nextLine(), "");
    EXPECT_EQ(reader->nextLine(), "c");
    EXPECT_EQ(reader->nextLine(), std::nullopt);
    EXPECT_TRUE(reader->atEof());
    EXPECT_EQ(StreamReader::make((home_.path() / "missing").string()), nullptr);
    EXPECT_EQ(StreamReader::make(write("e.txt", "x"), ""), nullptr);
}

TEST_F(FileReaders, UndecodableLineEndsReadingMissingFileAndClosedReaderAreFatal) {
    ScopedFatalErrorHandler fatal;
    std::string missing = (home_.path() / "missing.m3u8").string();
    EXPECT_THROW(FileBufferedReader{missing}, FatalErrorException);
    FileBufferedReader reader(write("bad.m3u8",
                                    "good\nb\xff\xfe"
                                    "d\nnever"));
    EXPECT_EQ(reader.readLine(), "good");
    EXPECT_EQ(reader.readLine(), std::nullopt) << "an undecodable line ends reading";
    reader.close();
    EXPECT_THROW(reader.readLine(), FatalErrorException);
}

// The block reader the file parsers use gives the lines FileBufferedReader gives, whatever the
// block size: lines across blocks, lines longer than a block and an undecodable line.
TEST_F(FileReaders, BlockReaderAgreesWithTheBufferedReaderAtAnyBlockSize) {
    std::string longLine(10000, 'z');
    longLine.replace(4094, 3, "\u20ac");  // a three-byte character across a block boundary
    const std::string texts[] = {"one\ntwo\r\nthree",
                                 "one\n\ntwo\n",
                                 "",
                                 "\n",
                                 "\u2028x\u0085\n\n",
                                 "a\n" + longLine + "\nb",
                                 "good\nb\xff\xfe"
                                 "d\nnever\n",
                                 "last line b\xff"};
    for (const auto& text : texts) {
        auto path = write("b.m3u8", text);
        // The lines up to the first absent one, the lines the parsers read.
        FileBufferedReader reference(path);
        Lines expected;
        while (auto line = reference.readLine()) {
            expected.push_back(*line);
        }
        for (std::size_t blockSize : {1, 3, 7, 4096, 1 << 20}) {
            auto reader = FileLineReader::open(path, blockSize);
            ASSERT_TRUE(reader.has_value());
            Lines lines;
            while (auto line = reader->next()) {
                lines.emplace_back(*line);
            }
            EXPECT_EQ(reader->next(), std::nullopt) << "the end of input must stay the end";
            EXPECT_EQ(lines, expected) << text.substr(0, 20) << " in blocks of " << blockSize;
        }
    }
    EXPECT_FALSE(FileLineReader::open((home_.path() / "missing.m3u8").string()).has_value());
}

TEST_F(FileReaders, UrlReaderReadsTheBodyWhateverTheStatusAndFileUrls) {
    test::TestHttpServer server;
    server.on("/ok.m3u8", test::TestHttpServer::Response::text("#EXTM3U\r\nx"));
    server.on("/missing.m3u8", test::TestHttpServer::Response::text("gone", 404));
    server.on("/binary", test::TestHttpServer::Response::text("\xff\xfe"));
    server.on("/dropped", test::TestHttpServer::Response::dropped());

    const std::pair<std::string, Lines> cases[] = {
        {server.url("/ok.m3u8"), {"#EXTM3U", "", "x"}},
        {server.url("/missing.m3u8"), {"gone"}},
        {server.url("/binary"), {""}},
        {server.url("/dropped"), {""}},
        {"http://127.0.0.1:1/none.m3u8", {""}},
        {Url::fileUrl(write("g.m3u8", "a\nb")).absoluteString(), {"a", "b"}},
        {Url::fileUrl((home_.path() / "none.m3u8").string()).absoluteString(), {""}}};
    for (const auto& [url, expected] : cases) {
        URLBufferedReader reader(*Url::parse(url));
        EXPECT_EQ(allLines(reader), expected) << url;
    }
}

}  // namespace
}  // namespace zarvo

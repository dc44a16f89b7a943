#include "CFileWriter.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include <gtest/gtest.h>

#include "CFileReader.h"

namespace fs = std::filesystem;

namespace
{

class CFileWriterTest : public testing::Test
{
protected:
    CFileWriterTest()
    {
        std::string folder = (fs::temp_directory_path() / "filecopy-test-XXXXXX").string();
        m_Folder = mkdtemp(folder.data());
    }
    ~CFileWriterTest() override { fs::remove_all(m_Folder); }

    static std::string Line(const std::string& path, const std::string& size = "0")
    {
        return CSha256().Finish() + ' ' + size + ' ' + path + '\0';
    }

    static std::string Content(const fs::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    fs::path m_Folder;
};

}  // namespace

TEST_F(CFileWriterTest, PathThatLeadsOut_Constructed_ThrowsAndWritesNothing)
{
    const fs::path into = m_Folder / "into";
    for (const std::string path :
         {"../out", "..", "a/../../out", "a/../in", "/out", "", ".", "a/", "a/.", "/", "a/b/../../../out"}) {
        EXPECT_THROW(CFileWriter(CFileList::Decode(Line("good") + Line(path)), into), std::runtime_error) << path;
        EXPECT_TRUE(fs::is_empty(into)) << path;
    }
    EXPECT_FALSE(fs::exists(m_Folder / "out"));
}

TEST_F(CFileWriterTest, PathWithDotsInNames_Constructed_IsWritten)
{
    const CFileWriter writer(CFileList::Decode(Line("..a/...") + Line("b..") + Line("a b/c d")), m_Folder);
    EXPECT_TRUE(writer.IsComplete());
    EXPECT_TRUE(writer.GetDifferent().empty());
    EXPECT_TRUE(fs::is_regular_file(m_Folder / "..a/..."));
    EXPECT_TRUE(fs::is_regular_file(m_Folder / "b.."));
    EXPECT_TRUE(fs::is_regular_file(m_Folder / "a b/c d"));
}

TEST_F(CFileWriterTest, FileThatIsAFolderToo_Taken_Throws)
{
    EXPECT_THROW(CFileWriter(CFileList::Decode(Line("a") + Line("a/b")), m_Folder), std::runtime_error);
}

TEST_F(CFileWriterTest, BytesBehindTheLastFile_Taken_Throws)
{
    CFileWriter writer(CFileList::Decode(Line("a", "3")), m_Folder);
    EXPECT_THROW(writer.Take("abcd", 4), std::runtime_error);
}

TEST_F(CFileWriterTest, WrongContent_Taken_IsNamedAndRemoved)
{
    CFileWriter writer(CFileList::Decode(Line("wrong", "3") + Line("right")), m_Folder);
    EXPECT_FALSE(writer.IsComplete());
    writer.Take("abc", 3);
    EXPECT_TRUE(writer.IsComplete());
    EXPECT_EQ(std::vector<std::string>{"wrong"}, writer.GetDifferent());
    EXPECT_FALSE(fs::exists(m_Folder / "wrong"));
    EXPECT_TRUE(fs::exists(m_Folder / "right"));
}

TEST_F(CFileWriterTest, WhatTheReaderReads_TakenInPieces_IsTheSame)
{
    const fs::path from = m_Folder / "from";
    const fs::path into = m_Folder / "into";
    fs::create_directories(from / "folder");
    std::ofstream(from / "a") << "first";
    std::ofstream(from / "b").flush();
    std::ofstream(from / "folder/c") << std::string(1000, 'c') << '\0';
    fs::create_symlink("a", from / "link");
    const CFileList list(from);
    ASSERT_EQ(3u, list.GetFiles().size());
    EXPECT_EQ(1006u, list.GetBytes());
    for (const std::size_t size : {1u, 7u, 5u, 1006u, 5000u}) {
        CFileReader reader(list, CFileReader::s_qwNowhere);
        CFileWriter writer(CFileList::Decode(list.Encode()), into);
        std::string piece(size, ' ');
        while (const std::size_t length = reader.Read(piece.data(), size))
            writer.Take(piece.data(), length);
        EXPECT_TRUE(writer.IsComplete());
        EXPECT_TRUE(writer.GetDifferent().empty());
        for (const CFileEntry& file : list.GetFiles())
            EXPECT_EQ(Content(from / file.m_strPath), Content(into / file.m_strPath));
        EXPECT_EQ(list.GetFiles(), CFileList(into).GetFiles());
        fs::remove_all(into);
    }
}

TEST_F(CFileWriterTest, FileThatHasShrunk_Read_EndsEarly)
{
    std::ofstream(m_Folder / "a") << "first";
    const CFileList list(m_Folder);
    std::ofstream(m_Folder / "a") << "f";
    char piece[8];
    EXPECT_EQ(0u, CFileReader(list, CFileReader::s_qwNowhere).Read(piece, sizeof piece));
}

TEST_F(CFileWriterTest, ChangedByte_Read_IsThatOneOnly)
{
    std::ofstream(m_Folder / "a") << "abc";
    std::ofstream(m_Folder / "b") << "def";
    const CFileList list(m_Folder);
    char piece[6];
    EXPECT_EQ(6u, CFileReader(list, 4).Read(piece, sizeof piece));
    EXPECT_EQ(std::string("abcd") + static_cast<char>(~'e') + "f", std::string(piece, sizeof piece));
}

TEST(CFileListTest, NoList_Decoded_Throws)
{
    const std::string sha = CSha256().Finish();
    const std::string end(1, '\0');
    for (const std::string& text : {std::string("x"), end, sha + end, sha + " 1 a", sha + " 1" + end, sha + "  a" + end,
                                    sha + " x a" + end, sha + " 1x a" + end, sha + " -1 a" + end, sha + "x1 a" + end,
                                    sha + " 99999999999999999999999 a" + end, " 1 a" + end})
        EXPECT_THROW(CFileList::Decode(text), std::runtime_error) << text;
    EXPECT_TRUE(CFileList::Decode("").GetFiles().empty());
}

// Sizes whose sum wrapped made a list that was complete after a few bytes.
TEST(CFileListTest, SizesBeyondAnyFile_Decoded_Throws)
{
    const std::string most = "9223372036854775807";
    const auto line = [](const std::string& size) { return CSha256().Finish() + ' ' + size + " a" + '\0'; };
    for (const std::string& text : {line("9223372036854775808"), line("18446744073709551615") + line("1"),
                                    line(most) + line("1"), line("1") + line(most)})
        EXPECT_THROW(CFileList::Decode(text), std::runtime_error) << text;
    EXPECT_EQ(2U, CFileList::Decode(line(most) + line("0")).GetFiles().size());
}

#pragma once

#include <memory>

#include "Tools/hubctl/Rows.h"

namespace hubctl {

/// A folder and all below it as rows: each folder a bin, each file a clip.
///
/// The tree is looked through once, at the start; contents are read when their row is asked for. Links to folders are
/// not followed, links to files are taken for the file. What is neither folder nor file, cannot be read, has gone or
/// changes while it is read is left out, with a remark: a folder's or a link's row as a whole, a file's content alone
/// (but for a file that has gone). Names that are no UTF-8 get U+FFFD for the odd bytes, and a remark.
class FolderRows final : public RowSource
{
public:
    /// Null, with the reason, when the folder itself cannot be read. Contents of more than inLimit bytes are left out.
    static std::unique_ptr<FolderRows> Open(const std::string& inFolder, std::uint64_t inLimit, std::string& outError);
    ~FolderRows() override;

    [[nodiscard]] std::size_t Count() const override;
    bool Next(AssetRow& outRow) override;
    [[nodiscard]] const std::vector<Remark>& Remarks() const override { return mRemarks; }
    /// The name of the folder itself.
    [[nodiscard]] const std::string& RootName() const;

private:
    struct Item;

    FolderRows(std::string inRoot, std::uint64_t inLimit);
    bool Walk(std::string& outError);
    bool ListFolder(std::size_t inFolder, std::vector<std::string>& outNames, std::string& outError);
    void LookAt(std::size_t inFolder, const std::string& inName);
    void AddItem(Item inItem);
    [[nodiscard]] std::string FullPath(const Item& inItem) const;
    [[nodiscard]] std::string Properties(const Item& inItem) const;
    bool TakeContent(const Item& inItem, AssetRow& ioRow);
    void AddRemark(const std::string& inPath, std::string inText);

    const std::string mRoot;  ///< as given, without slashes at the end
    const std::uint64_t mLimit;
    std::vector<Item> mItems;  ///< a folder before all below it
    std::size_t mNext = 0;
    std::vector<Remark> mRemarks;
};

}  // namespace hubctl

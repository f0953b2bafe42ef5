// Commits many assets through a running hub: a production, a transaction, bulk forms, the commit. Then it makes an
// asset with a large enclosure and tells where the small and the large answer are read.
//
//   form_round <port> <assets> [large bytes]

#include <cstdlib>
#include <iostream>

#include "Bench/GeneratedAssets.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Platform/noxnet/HTTPClient.h"
#include "Platform/noxnet/MultipartForm.h"
#include "Tools/hubctl/HubAPI.h"

namespace {

namespace Keys = VYCL::FormKeys;
namespace dto = VantryLocalHub::dto;
using hubctl::Failure;
using noxnet::http::client::MultipartForm;

constexpr std::size_t kRowsAForm = 2000;

void Check(bool inHolds, const Failure& inFailure)
{
    if (inHolds) return;
    std::cerr << "form_round: " << inFailure.mText << "\n";
    std::exit(1);
}

void AddRow(bench::GeneratedAsset inAsset, MultipartForm& ioForm)
{
    const std::string joint(1, Keys::kJoint);
    const std::string asset = std::string(Keys::kKindAssets) + joint + inAsset.mID + joint;
    const std::string enclosure = std::string(Keys::kKindEnclosures) + joint + inAsset.mEnclosureID + joint;
    if (!ioForm.AddText(asset + std::string(Keys::kPartProperties), std::move(inAsset.mProperties)) ||
        !ioForm.AddText(enclosure + std::string(Keys::kPartName) + joint + inAsset.mID,
                        std::move(inAsset.mEnclosureName)) ||
        !ioForm.AddContent(enclosure + std::string(Keys::kPartContent) + joint + inAsset.mID,
                           std::move(inAsset.mContent)))
        std::exit(1);
}

void CommitAll(hubctl::HubAPI& inHub, const std::string& inSession, std::size_t inAssets)
{
    const bench::GeneratedAssets generated;
    Failure failure;
    dto::TransactionResource transaction;
    Check(inHub.OpenTransaction(inSession, transaction, failure), failure);
    for (std::size_t begin = 0; begin < inAssets; begin += kRowsAForm) {
        MultipartForm form;
        for (std::size_t index = begin; index < std::min(inAssets, begin + kRowsAForm); ++index)
            AddRow(generated.Make(index), form);
        dto::TransactionResult result;
        Check(inHub.BulkCreate(transaction.mTransactionID.View(), form, result, failure), failure);
    }
    dto::TransactionResource committed;
    Check(inHub.Commit(transaction.mTransactionID.View(), "bench", committed, failure), failure);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) return 2;
    const auto port = static_cast<std::uint16_t>(std::strtoul(argv[1], nullptr, 10));
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    hubctl::HubAPI hub(noxnet::http::client::Client::Create("127.0.0.1", port, {}));
    Failure failure;
    dto::SessionResource session;
    Check(hub.CreateLocalProduction(R"({"name":"Bench"})", session, failure), failure);
    bench::Report report;
    const double start = bench::Now();
    CommitAll(hub, session.mSessionID.Text(), assets);
    report.Add("seconds", bench::Now() - start);
    report.Print();
    if (argc < 4) return 0;
    const bench::GeneratedAssets generated;
    bench::GeneratedAsset large = generated.Make(assets);
    const std::string largeID = large.mID;
    const std::string enclosureID = large.mEnclosureID;
    large.mContent.clear();
    const std::size_t size = std::strtoull(argv[3], nullptr, 10);
    while (large.mContent.size() < size)
        large.mContent += generated.Make(assets + large.mContent.size()).mContent;
    large.mContent.resize(size);
    dto::TransactionResource transaction;
    Check(hub.OpenTransaction(session.mSessionID.View(), transaction, failure), failure);
    MultipartForm form;
    AddRow(std::move(large), form);
    dto::TransactionResult result;
    Check(hub.BulkCreate(transaction.mTransactionID.View(), form, result, failure), failure);
    dto::TransactionResource committed;
    Check(hub.Commit(transaction.mTransactionID.View(), "bench", committed, failure), failure);
    const std::string id(session.mSessionID.View());
    std::cout << hubctl::FillURL(VYCL::URLTemplate::kAsset, {id, committed.mCommitID.View(), largeID}) << "\n"
              << hubctl::FillURL(VYCL::URLTemplate::kAssetEnclosureById,
                                 {id, committed.mCommitID.View(), largeID, enclosureID})
              << "\n";
    return 0;
}

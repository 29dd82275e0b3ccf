// SPDX-License-Identifier: MIT
// The view-model class linked directly: what no handler reaches, its stored
// state, and the user texts with translators installed.

#include "common/warningcapture.h"
#include "framework/api.h"
#include "framework/wire.h"
#include "host/host.h"
#include "protomodel/messageids.h"
#include "viewmodel/outputedidviewmodel.h"

#include <QCoreApplication>
#include <QTranslator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace msg = LCD::MessageId;

using edidvm::host::Bytes;
using namespace LCD::ProtoModel::Interface;
using ::testing::ElementsAre;

namespace {

class ExposedViewModel : public Model::OutputEDIDViewModel
{
public:
    using OutputEDIDViewModel::m_curSDIInterfaceInfo;
};

class ViewModelUnitTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        kpf::api::get().hostApi = &host.api();
        model = std::make_unique<ExposedViewModel>();
        host.start(model.get());
        host.recorder().clear();
    }

    void TearDown() override
    {
        model.reset();
        kpf::api::get().hostApi = nullptr;
    }

    // The waiting indicator's text and the bandwidth box's, as sent.
    std::pair<std::string, std::string> userTexts()
    {
        model->showWaitingDialog(true);
        model->showBandWidthOverMessageBox();
        const auto sent = host.recorder().take();
        EXPECT_EQ(sent.size(), 2u);
        EXPECT_EQ(sent.at(1).bytes.size(), 556u);
        const auto* loading = reinterpret_cast<const char*>(sent.at(0).bytes.data());
        EXPECT_EQ(sent.at(0).bytes.back(), 0) << "the NUL travels too";
        lastBox = sent.at(1).bytes;
        return {std::string(loading, sent.at(0).bytes.size() - 1),
                reinterpret_cast<const char*>(sent.at(1).bytes.data()) + 24};
    }

    edidvm::test::WarningCapture capture;
    edidvm::host::Host host;
    std::unique_ptr<ExposedViewModel> model;
    Bytes lastBox;
};

// The untranslated texts are checked byte for byte by the timing-change suite.
TEST_F(ViewModelUnitTest, UserTextsFollowTheInstalledTranslation)
{
    QTranslator german;
    ASSERT_TRUE(german.load(QStringLiteral(EDIDVM_GERMAN_QM)));
    ASSERT_TRUE(QCoreApplication::installTranslator(&german));
    const auto translated = userTexts();
    QCoreApplication::removeTranslator(&german);
    EXPECT_EQ(translated.first, "Wird geladen \u2026");
    EXPECT_EQ(translated.second, "Bandbreitengrenze \u00fcberschritten. Bitte Bildrate oder erweiterte Parameter "
                                 "anpassen und erneut versuchen.");
    EXPECT_EQ(userTexts().first, "Loading...") << "untranslated again once the translator is gone";
}

TEST_F(ViewModelUnitTest, AnOverlongTranslationIsCutOnACharacterBoundaryInTheBoxOnly)
{
    // "a" then three-byte characters: 255 bytes would end inside the 85th.
    // The waiting event has no field to fit: all 150 two-byte characters.
    QTranslator overlong;
    ASSERT_TRUE(overlong.load(QStringLiteral(EDIDVM_OVERLONG_QM)));
    ASSERT_TRUE(QCoreApplication::installTranslator(&overlong));
    const auto cut = userTexts();
    QCoreApplication::removeTranslator(&overlong);
    EXPECT_EQ(cut.first.size(), 300u);
    std::string expected = "a";
    for (int i = 0; i < 84; ++i)
        expected += "\u20ac";
    EXPECT_EQ(cut.second, expected);
    EXPECT_EQ(Bytes(lastBox.begin() + 24 + 253, lastBox.begin() + 281), Bytes(281 - 24 - 253, 0));
    EXPECT_EQ(lastBox[281], 1) << "the field after the text is intact";
}

// The over-long translation above cuts inside a three-byte character.
TEST(FitText, KeepsAtMostOneByteLessThanTheFieldOnACharacterBoundary)
{
    struct Case
    {
        const char* name;
        QByteArray text;
        int field, kept;
    };
    const Case cases[] = {
        {"fits with its NUL", "abc", 4, 3},
        {"one byte too long", "abcd", 4, 3},
        {"two-byte character cut", "a\xc3\xa9", 3, 1},
        {"four-byte character cut", "ab\xf0\x9f\x98\x80", 5, 2},
        {"only a cut character", "\xc3\xa9", 2, 0},
        {"no field", "abc", 0, 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Model::OutputEDIDViewModel::fitText(c.text, c.field), c.text.left(c.kept)) << c.name;
}

// The payload table checks the warnings of the refused sizes.
TEST_F(ViewModelUnitTest, AnSdiRecordOfExactly16BytesNamesTheFirstListedInterfaceWithItsId)
{
    const std::uint32_t words[5] = {1, 2, 5, 4, 99}; // interface 5
    for (const auto& [data, size] : {std::pair<const void*, int>{words, 15}, {words, 17}, {nullptr, 16}}) {
        host.deliver(model.get(), kpf::MessageKindEvent, msg::SdiInterface, size, data);
        EXPECT_EQ(std::memcmp(&model->m_curSDIInterfaceInfo, Bytes(16, 0).data(), 16), 0) << size;
    }
    host.deliver(model.get(), kpf::MessageKindEvent, msg::SdiInterface, 16, words);
    EXPECT_EQ(std::memcmp(&model->m_curSDIInterfaceInfo, words, 16), 0);
    capture.clear();
    s_InterfaceDetailInfo info;
    EXPECT_EQ(model->getSDIInterfaceDetail(info).interfaceId, 0);
    info.stInterfaceListArry.resize(3);
    for (int i : {0, 1, 2}) { // ids 4, 5, 5 in slots 0, 1, 2
        info.stInterfaceListArry[i].interfaceId = i ? 5 : 4;
        info.stInterfaceListArry[i].slotId = i;
    }
    EXPECT_EQ(model->getSDIInterfaceDetail(info).slotId, 1);
    info.stInterfaceListArry.resize(1);
    EXPECT_EQ(model->getSDIInterfaceDetail(info).interfaceId, 0);
    EXPECT_THAT(capture.texts(), ElementsAre("interface list is empty", "find not sdi interface info "));
}

// One copy per tag, in order, otherwise unchanged.
TEST_F(ViewModelUnitTest, TagsExpandInOrder)
{
    const auto expectTags = [](const auto& expanded, auto check, std::size_t count) {
        ASSERT_EQ(expanded.size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            check.tagName = static_cast<int>(i);
            EXPECT_EQ(std::memcmp(&expanded[i], &check, sizeof check), 0) << i;
        }
    };
    const s_ThumbTimigCheck thumb{3, 77, {0, 0.0f, 1280, 0, 0, 0, 0}, 0, 9};
    expectTags(model->putTagNameTothumbCheckArry(thumb), thumb, 6);
    s_DetailTimigCheck detail{3, 77, {}, 8, 9};
    detail.stTimingDetail.param13 = 13;
    expectTags(model->putTagNameToDetailCheckArry(detail), detail, 14);
}

// The services looked up on every call are missing once a host takes its
// API back (pluginit(nullptr)): no reply, no impact worked out.
TEST_F(ViewModelUnitTest, WithoutTheHostApiNoReplyIsMadeAndNoImpactWorkedOut)
{
    kpf::api::get().hostApi = nullptr;
    EXPECT_FALSE(host.deliver(model.get(), kpf::MessageKindCommand, msg::InterfaceType, 0, nullptr));
    const s_InterfaceThumbTiming choice{0, {0, 60.0f, 1280, 720, 0, 0, 0}, 0, 0};
    host.deliver(model.get(), kpf::MessageKindEvent, msg::ThumbChoice, sizeof choice, &choice);
    EXPECT_THAT(capture.texts(), ::testing::IsSupersetOf({"service kpf_default_messagecenter is missing, no reply",
                                                          "Not find the pSubcardCfgMgr or pDeviceCfgMgr"}));
    EXPECT_EQ(capture.texts().front(), "service kpf_default_messagecenter is missing, no reply");
}

} // namespace

int main(int argc, char** argv)
{
    // Translators can only be installed with an application object.
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

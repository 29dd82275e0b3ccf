// The view-model class linked directly: what no handler reaches yet, its
// stored state, and the user texts with translators installed.

#include "common/warningcapture.h"
#include "framework/api.h"
#include "framework/wire.h"
#include "host/host.h"
#include "viewmodel/outputedidviewmodel.h"

#include <QCoreApplication>
#include <QTranslator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using edidvm::host::Bytes;
using edidvm::host::SentKind;
using edidvm::test::WarningCapture;
using namespace LCD::ProtoModel::Interface;
using ::testing::ElementsAre;

namespace {

class InspectableViewModel : public Model::OutputEDIDViewModel
{
public:
    using OutputEDIDViewModel::m_curInterfaceInfo;
    using OutputEDIDViewModel::m_curSDIInterfaceInfo;
    using OutputEDIDViewModel::m_interfaceRefTimingArry;
    using OutputEDIDViewModel::m_interfaceTimingArry;
};

void put32(Bytes& bytes, std::size_t offset, std::int32_t value)
{
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

Bytes textBytes(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

class ViewModelUnitTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        kpf::api::get().hostApi = &host.api();
        model = std::make_unique<InspectableViewModel>();
        host.start(model.get());
        host.recorder().clear();
    }

    void TearDown() override
    {
        model.reset();
        kpf::api::get().hostApi = nullptr;
    }

    void event(std::uint32_t number, const void* data, int size)
    {
        host.deliver(model.get(), kpf::MessageKindEvent, number, size, data);
    }

    edidvm::host::SentMessage onlySent()
    {
        const auto sent = host.recorder().take();
        EXPECT_EQ(sent.size(), 1u);
        return sent.empty() ? edidvm::host::SentMessage() : sent.front();
    }

    WarningCapture capture;
    edidvm::host::Host host;
    std::unique_ptr<InspectableViewModel> model;
};

TEST_F(ViewModelUnitTest, AFreshComponentHoldsDefaults)
{
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord0, 0u);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord1, 0u);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.interfaceId, 0);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord3, 0u);
    EXPECT_TRUE(model->m_interfaceTimingArry.empty());
    EXPECT_TRUE(model->m_interfaceRefTimingArry.empty());
    EXPECT_EQ(model->m_curInterfaceInfo.stAuxiliaryInfo.usedByScreen, "N/A");
    EXPECT_EQ(model->m_curInterfaceInfo.checkParam0, -1);
}

TEST_F(ViewModelUnitTest, WaitingIndicatorEvents)
{
    model->showWaitingDialog(false);
    const auto hide = onlySent();
    EXPECT_EQ(hide.kind, SentKind::Event);
    EXPECT_EQ(hide.number, 0xFC0C0C10u);
    EXPECT_EQ(hide.size, 0);
    EXPECT_TRUE(hide.nullData);
    EXPECT_EQ(hide.sender, "outputedidviewmodel");

    model->showWaitingDialog(true);
    const auto show = onlySent();
    EXPECT_EQ(show.number, 0xFC0C0C0Fu);
    EXPECT_EQ(show.size, 11);
    EXPECT_EQ(show.bytes, textBytes(std::string("Loading...", 11)));
}

TEST_F(ViewModelUnitTest, BandwidthBoxIsTheExact556ByteRecord)
{
    // Laid out by byte offset, independently of the record declaration.
    Bytes expected(556, 0);
    put32(expected, 0, 14);
    put32(expected, 4, 4);
    put32(expected, 8, -1);
    put32(expected, 12, -1);
    const std::string text = "Bandwidth limit exceeded. Please adjust the frame rate or advanced parameters and retry.";
    ASSERT_EQ(text.size(), 88u);
    std::memcpy(expected.data() + 24, text.data(), text.size());
    expected[281] = 1;
    put32(expected, 284, 2000);
    put32(expected, 548, -1);
    put32(expected, 552, 1);

    model->showBandWidthOverMessageBox();
    const auto box = onlySent();
    EXPECT_EQ(box.number, 0xFC0C0C12u);
    EXPECT_EQ(box.size, 556);
    EXPECT_EQ(box.bytes, expected);
}

TEST_F(ViewModelUnitTest, UserTextsFollowTheInstalledTranslation)
{
    QTranslator german;
    ASSERT_TRUE(german.load(QStringLiteral(EDIDVM_GERMAN_QM)));
    ASSERT_TRUE(QCoreApplication::installTranslator(&german));
    model->showWaitingDialog(true);
    model->showBandWidthOverMessageBox();
    QCoreApplication::removeTranslator(&german);

    const auto sent = host.recorder().take();
    ASSERT_EQ(sent.size(), 2u);
    const std::string loading = "Wird geladen \u2026";
    EXPECT_EQ(sent[0].size, static_cast<int>(loading.size()) + 1);
    EXPECT_EQ(sent[0].bytes, textBytes(std::string(loading.c_str(), loading.size() + 1)));
    const std::string box(reinterpret_cast<const char*>(sent[1].bytes.data()) + 24);
    EXPECT_EQ(box, "Bandbreitengrenze \u00fcberschritten. Bitte Bildrate oder erweiterte Parameter anpassen und "
                   "erneut versuchen.");

    // Untranslated again once the translator is gone.
    model->showWaitingDialog(true);
    EXPECT_EQ(onlySent().size, 11);
}

TEST_F(ViewModelUnitTest, OverlongTranslationsAreCutOnACharacterBoundaryOnlyWhereTheFieldEnds)
{
    QTranslator overlong;
    ASSERT_TRUE(overlong.load(QStringLiteral(EDIDVM_OVERLONG_QM)));
    ASSERT_TRUE(QCoreApplication::installTranslator(&overlong));
    model->showWaitingDialog(true);
    model->showBandWidthOverMessageBox();
    QCoreApplication::removeTranslator(&overlong);

    const auto sent = host.recorder().take();
    ASSERT_EQ(sent.size(), 2u);
    // The waiting event has no field to fit: 150 two-byte characters and NUL.
    EXPECT_EQ(sent[0].size, 301);
    EXPECT_EQ(sent[0].bytes.back(), 0);

    // "a" then three-byte characters: 255 bytes would end inside the 85th.
    const Bytes& box = sent[1].bytes;
    ASSERT_EQ(box.size(), 556u);
    std::string expected = "a";
    for (int i = 0; i < 84; ++i)
        expected += "\u20ac";
    ASSERT_EQ(expected.size(), 253u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(box.data()) + 24), expected);
    for (std::size_t i = 24 + expected.size(); i < 280; ++i)
        EXPECT_EQ(box[i], 0) << "byte " << i;
    EXPECT_EQ(box[281], 1) << "the field after the text is intact";
}

TEST(FitText, KeepsAtMostOneByteLessThanTheFieldOnACharacterBoundary)
{
    struct Case
    {
        const char* name;
        QByteArray text;
        int field;
        int kept;
    };
    const QByteArray euro = QByteArray("\xe2\x82\xac");
    const Case cases[] = {
        {"empty", "", 256, 0},
        {"fits with its NUL", "abc", 4, 3},
        {"one byte too many", "abcd", 4, 3},
        {"two-byte character straddles the end", QByteArray("a\xc3\xa9"), 3, 1},
        {"three-byte characters fill exactly", euro.repeated(85), 256, 255},
        {"three-byte character straddles the end", "a" + euro.repeated(100), 256, 253},
        {"four-byte character straddles the end", QByteArray("ab\xf0\x9f\x98\x80"), 5, 2},
        {"no room at all", "abc", 0, 0},
    };
    for (const Case& c : cases) {
        const QByteArray kept = Model::OutputEDIDViewModel::fitText(c.text, c.field);
        EXPECT_EQ(kept, c.text.left(c.kept)) << c.name;
    }
}

TEST_F(ViewModelUnitTest, FiltersReplaceTheMapWithTheirOneKey)
{
    std::map<std::string, std::string> params = {{"stale", "1"}, {"interfaceId", "9"}};
    for (std::int32_t id : {-1, 42}) {
        s_InterfaceList current;
        current.interfaceId = id;
        event(0xFC021009u, &current, sizeof current);
        EXPECT_TRUE(model->getCurInterfaceMap(params));
        EXPECT_EQ(params, (std::map<std::string, std::string>{{"interfaceId", std::to_string(id)}}));
    }
    params["other"] = "x";
    EXPECT_TRUE(model->getScreenMap(params));
    EXPECT_EQ(params, (std::map<std::string, std::string>{{"screenType", "2"}}));
}

TEST_F(ViewModelUnitTest, SettingAnInterfaceReplacesItsTextsCompletely)
{
    s_InterfaceList longTexts;
    longTexts.stAuxiliaryInfo.usedByScreen = std::string(300, 'u');
    longTexts.stAuxiliaryInfo.auxText28 = std::string(40, 't');
    longTexts.ifText94 = std::string(50, 'x');
    event(0xFC021009u, &longTexts, sizeof longTexts);
    EXPECT_EQ(model->m_curInterfaceInfo.stAuxiliaryInfo.usedByScreen, std::string(300, 'u'));

    s_InterfaceList shortTexts;
    shortTexts.interfaceId = 2;
    shortTexts.stAuxiliaryInfo.usedByScreen = "s";
    event(0xFC021009u, &shortTexts, sizeof shortTexts);
    EXPECT_EQ(model->m_curInterfaceInfo.interfaceId, 2);
    EXPECT_EQ(model->m_curInterfaceInfo.stAuxiliaryInfo.usedByScreen, "s");
    EXPECT_EQ(model->m_curInterfaceInfo.stAuxiliaryInfo.auxText28, "");
    EXPECT_EQ(model->m_curInterfaceInfo.ifText94, "");
}

TEST_F(ViewModelUnitTest, SdiRecordIsStoredOnlyWhenExactly16Bytes)
{
    const std::uint32_t words[5] = {1, 2, 5, 4, 99};
    event(0xFC031007u, words, 15);
    event(0xFC031007u, words, 17);
    event(0xFC031007u, nullptr, 16);
    EXPECT_THAT(capture.texts(),
                ElementsAre("command does not correct.", "command does not correct.", "command does not correct."));
    EXPECT_EQ(model->m_curSDIInterfaceInfo.interfaceId, 0);

    event(0xFC031007u, words, 16);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord0, 1u);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord1, 2u);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.interfaceId, 5);
    EXPECT_EQ(model->m_curSDIInterfaceInfo.sdiWord3, 4u);
    EXPECT_EQ(capture.texts().size(), 3u);
    EXPECT_TRUE(host.recorder().messages().empty());
}

TEST_F(ViewModelUnitTest, SdiLookupTakesTheFirstMatchOrADefaultRecord)
{
    const std::uint32_t sdi[4] = {0, 0, 5, 0};
    event(0xFC031007u, sdi, sizeof sdi);

    s_InterfaceDetailInfo info;
    EXPECT_EQ(model->getSDIInterfaceDetail(info).interfaceId, 0);
    info.stInterfaceListArry.resize(3);
    info.stInterfaceListArry[0].interfaceId = 4;
    info.stInterfaceListArry[1].interfaceId = 5;
    info.stInterfaceListArry[1].slotId = 1;
    info.stInterfaceListArry[2].interfaceId = 5;
    info.stInterfaceListArry[2].slotId = 2;
    EXPECT_EQ(model->getSDIInterfaceDetail(info).slotId, 1);

    info.stInterfaceListArry.erase(info.stInterfaceListArry.begin() + 1, info.stInterfaceListArry.end());
    const s_InterfaceList fallback = model->getSDIInterfaceDetail(info);
    EXPECT_EQ(fallback.interfaceId, 0);
    EXPECT_EQ(fallback.stAuxiliaryInfo.usedByScreen, "N/A");
    EXPECT_FLOAT_EQ(fallback.ifFloat189, 2.2f);
    EXPECT_THAT(capture.texts(), ElementsAre("interface list is empty", "find not sdi interface info "));
}

TEST_F(ViewModelUnitTest, TagExpansionMakesOneCopyPerTagInOrder)
{
    s_ThumbTimigCheck thumb;
    thumb.interfaceId = 3;
    thumb.tagName = 77;
    thumb.stThumbTiming.width = 1280;
    thumb.checkParam1 = 9;
    const auto thumbs = model->putTagNameTothumbCheckArry(thumb);
    ASSERT_EQ(thumbs.size(), 6u);
    for (std::size_t i = 0; i < thumbs.size(); ++i) {
        EXPECT_EQ(thumbs[i].tagName, static_cast<int>(i));
        EXPECT_EQ(thumbs[i].interfaceId, 3);
        EXPECT_EQ(thumbs[i].stThumbTiming.width, 1280);
        EXPECT_EQ(thumbs[i].checkParam1, 9);
    }

    s_DetailTimigCheck detail;
    detail.stTimingDetail.param13 = 13;
    const auto details = model->putTagNameToDetailCheckArry(detail);
    ASSERT_EQ(details.size(), 14u);
    for (std::size_t i = 0; i < details.size(); ++i) {
        EXPECT_EQ(details[i].tagName, static_cast<int>(i));
        EXPECT_EQ(details[i].stTimingDetail.param13, 13u);
    }
    EXPECT_TRUE(host.recorder().messages().empty());
}

} // namespace

int main(int argc, char** argv)
{
    // Translators can only be installed with an application object.
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

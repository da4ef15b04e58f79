// AVI channels over a side library that is really loaded and only notes its calls: which is a matter of the process, so
// each row is this program once more, with its environment.
#include <filesystem>
#include <fstream>

#include "entry/InChild.h"
#include "support/Client.h"

namespace corvane::test {
namespace {

// What a scenario and the side library wrote. `more`: variables, as the shell has them.
std::string Scenario(const std::string& scenario, const std::string& folder, const std::string& more = "") {
    return OutputOf("MOVARIX_LOG=/dev/fd/3 AVI_SCENARIO=" + scenario + " LD_LIBRARY_PATH=" FAKE_MOVARIX "/" + folder +
                    " " + more + " " + std::filesystem::read_symlink("/proc/self/exe").string() +
                    " --gtest_filter=AviScenario.* --gtest_brief=1 3>&1 >&2");
}

// ---- In the process of the scenario ----

void Write(const char* what, std::initializer_list<uint32_t> statuses) {
    std::ofstream stream(std::getenv("MOVARIX_LOG"), std::ios::app);
    stream << "= " << what << std::hex;
    for (const uint32_t status : statuses)
        stream << " " << status;
    stream << "\n";
}

struct Host {
    Host() : instance(NewInstance()) {}
    ~Host() { EXPECT_EQ(Corvane_Release(&instance), Status_Ok); }
    void* Create() {
        void* made = nullptr;
        const auto status = static_cast<int32_t>(Corvane_CreateAVIChannel(instance, &made));
        EXPECT_EQ(status >= 0, made != nullptr);
        return made;
    }
    void* instance;
};

// Every call once, with arguments that are not each other's and do not fit 32 bits.
void Everything() {
    constexpr uint64_t kHigh = uint64_t{0xA} << 32;
    Host host;
    void *none = nullptr, *live = nullptr;
    void* avi = host.Create();
    EXPECT_EQ(Corvane_CreateLiveAVIChannel(host.instance, &live), 4u);
    const uint32_t statuses[] = {
        Corvane_StartAVIChannel(avi, kHigh | 1),
        Corvane_StopAVIChannel(live),
        Corvane_InputAVIMedia(avi, kHigh | 2),
        Corvane_InputDecodedAVIMedia(live, 3, kHigh | 4),
        Corvane_ChooseVideoCompressor(host.instance, kHigh, 5, 6),
        Corvane_ChooseAudioCompressor(host.instance, 7, kHigh, 8),
        Corvane_SetVideoCompressorParam(host.instance, kHigh | 9),
        Corvane_GetVideoCompressorParam(host.instance, 10),
        Corvane_SetAudioCompressorParam(host.instance, 11),
        Corvane_GetAudioCompressorParam(host.instance, 12),
        Corvane_ChooseChannelVideoCompressor(avi, 13, 14, kHigh | 15),
        Corvane_ChooseChannelAudioCompressor(live, 16, 17, 18),
        Corvane_SetChannelVideoCompressorParam(avi, 19),
        Corvane_GetChannelVideoCompressorParam(avi, 20),
        Corvane_SetChannelAudioCompressorParam(avi, 21),
        Corvane_GetChannelAudioCompressorParam(avi, kHigh | 22),
        Corvane_SetChannelOption(avi, -1, kHigh | 23, kHigh | 24),
        Corvane_GetCurrentAVIFileSize(live, kHigh | 25),
    };
    for (const uint32_t& status : statuses)    // the numbers of the side library's functions
        EXPECT_EQ(status, 6 + (&status - statuses));
    // Of another kind, of another instance, gone already: nothing happens, and the variable is cleared.
    void* third = host.Create();
    Host other;
    void* strange[] = {NewChannel(host.instance), third, &other};
    for (void*& handle : strange)
        EXPECT_TRUE(Corvane_DeleteAVIChannel(other.instance, &handle) == Status_Ok && handle == nullptr);
    Write("delete", {Corvane_DeleteAVIChannel(host.instance, &avi), Corvane_DeleteAVIChannel(host.instance, &none)});
    EXPECT_EQ(avi, nullptr);
    // The rest ends with its instance.
}

// Without a side library, twice: each call returns its status.
void Without() {
    for (int i = 0; i < 2; ++i) {
        Host host;
        void* avi = &host;
        EXPECT_EQ(Corvane_CreateAVIChannel(host.instance, &avi), Status_WrongChannelType);
        EXPECT_EQ(Corvane_CreateLiveAVIChannel(host.instance, &avi), Status_WrongChannelType);
        EXPECT_EQ(Corvane_SetAudioCompressorParam(host.instance, 0), Status_WrongChannelType);
        EXPECT_EQ(Corvane_DeleteAVIChannel(host.instance, &avi), Status_WrongChannelType);
        EXPECT_EQ(avi, &host);
        void* const channel = NewChannel(host.instance);
        EXPECT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
    }
}

// A library that fails in one call.
void Failing() {
    Host host;
    void* avi = &host;
    const uint32_t created = Corvane_CreateAVIChannel(host.instance, &avi);
    Write("create", {created});
    if (avi != &host)
        Write("start, size, choose", {Corvane_StartAVIChannel(avi, 0), Corvane_GetCurrentAVIFileSize(avi, 0),
                                      Corvane_ChooseVideoCompressor(host.instance, 0, 0, 0)});
}

// Inside a call of the side library.
void Nested() {
    Host host;
    void *avi = host.Create(), *instance = host.instance, *own = avi;
    std::function<void()> inside = [&] {
        EXPECT_EQ(Corvane_DeleteAVIChannel(host.instance, &own), Status_Failed);
        EXPECT_EQ(Corvane_Release(&instance), Status_Failed);
        EXPECT_TRUE(own == avi && instance == host.instance);
    };
    EXPECT_EQ(Corvane_InputAVIMedia(avi, reinterpret_cast<uintptr_t>(&inside)), Status_Ok);
    // No lock is held: another thread makes and deletes channels of both kinds meanwhile.
    inside = [&] {
        std::thread([&] {
            void* another = host.Create();
            EXPECT_EQ(Corvane_DeleteAVIChannel(host.instance, &another), Status_Ok);
            another = NewChannel(host.instance);
            EXPECT_EQ(Corvane_DeleteChannel(host.instance, &another), Status_Ok);
        }).join();
    };
    EXPECT_EQ(Corvane_InputAVIMedia(avi, reinterpret_cast<uintptr_t>(&inside)), Status_Ok);
}

// The whole of such a process; nothing in any other.
TEST(AviScenario, OfTheEnvironment) {
    const char* const given = std::getenv("AVI_SCENARIO");
    const std::string name = given != nullptr ? given : "";
    for (const auto& [scenario, run] : {std::pair("everything", &Everything), std::pair("without", &Without),
                                        std::pair("failing", &Failing), std::pair("nested", &Nested)})
        if (name == scenario)
            run();
}

// ---- What they must write ----

TEST(AviChannel, EveryCallReachesTheSideLibraryAsItIs) {
    const char* const wanted = R"(Initial 0
CreateChannel 1000 0
CreateLiveChannel 1000 0
StartChannel 2001 a00000001
StopChannel 2002
InputMedia 2001 a00000002
InputDecodedMedia 2002 3 a00000004
ChooseVideoCompressor 1000 a00000000 5 6
ChooseAudioCompressor 1000 7 a00000000 8
SetVideoCompressorParam 1000 a00000009
GetVideoCompressorParam 1000 a
SetAudioCompressorParam 1000 b
GetAudioCompressorParam 1000 c
ChooseChannelVideoCompressor 2001 d e a0000000f
ChooseChannelAudioCompressor 2002 10 11 12
SetChannelVideoCompressorParam 2001 13
GetChannelVideoCompressorParam 2001 14
SetChannelAudioCompressorParam 2001 15
GetChannelAudioCompressorParam 2001 a00000016
SetChannelOption 2001 ffffffff 17 18
GetCurrentFileSize 2002 a00000019
CreateChannel 1000 0
Initial 0
DeleteChannel 2001
= delete 0 0
Release 1000
DeleteChannel 2002
DeleteChannel 2003
Release 1000
)";
    std::string got = Scenario("everything", "full");
    // The channels that are left end in the order of their handles, which is that of memory.
    if (const size_t at = got.find("DeleteChannel 2003\nDeleteChannel 2002\n"); at != std::string::npos)
        got.replace(at, 38, "DeleteChannel 2002\nDeleteChannel 2003\n");
    EXPECT_EQ(got, wanted);
}

TEST(AviChannel, WithoutAWholeSideLibraryThereIsNoRecording) {
    EXPECT_EQ(Scenario("without", "nothing"), "");
    for (const auto& folder : std::filesystem::directory_iterator(FAKE_MOVARIX))
        if (const std::string name = folder.path().filename(); name.starts_with("Movarix_"))
            EXPECT_EQ(Scenario("without", name), "") << name;
    EXPECT_EQ(Scenario("without", "full", "MOVARIX_FAIL='Initial 80000004'"), "Initial 0\nInitial 0\n")
        << "each asks again";
    EXPECT_EQ(Scenario("without", "full", "MOVARIX_FAIL='Initial throw'"), "Initial 0\nInitial 0\n");
}

TEST(AviChannel, FailuresOfTheSideLibraryAreTold) {
    const std::string create = "Initial 0\nCreateChannel 1000 0\n= create ", release = "Release 1000\n",
                      size = "GetCurrentFileSize 2001 0\n", start = "3\nStartChannel 2001 0\n",
                      choose = "ChooseVideoCompressor 1000 0 0 0\n= start, size, choose ",
                      end = "\nDeleteChannel 2001\n" + release;
    const struct {
        const char *folder, *variables;
        std::string wanted;
    } rows[] = {
        {"old", "", create + start + choose + "6 ffffffff a" + end},
        {"full", "MOVARIX_FAIL='CreateChannel 80000004'", create + "80000004\n" + release},
        {"full", "MOVARIX_FAIL='CreateChannel throw'", create + "ffffffff\n" + release},
        {"full", "MOVARIX_FAIL='StartChannel throw'", create + start + size + choose + "ffffffff 17 a" + end},
        {"full", "MOVARIX_FAIL='DeleteChannel throw' MOVARIX_NULL=1",
         create + "3\nStartChannel 0 0\nGetCurrentFileSize 0 0\n" + choose + "6 17 a\nDeleteChannel 0\n" + release},
        {"full", "MOVARIX_HOST=1 MOVARIX_FAIL='ChooseVideoCompressor 80000003'",
         "Initial 0\ncallback 2\nhost 0\ncallback 2\nhost 0\n" + create.substr(10) + start + size + choose +
             "6 17 80000003\nDeleteChannel 2001\ncallback 2\ndeleted 0\n" + release},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Scenario("failing", row.folder, row.variables), row.wanted);
}

TEST(AviChannel, NothingIsEndedFromInsideAndNoLockIsHeld) {
    for (const char* const where : {"here", "callback", "thread"}) {
        const std::string call = where == std::string("here") ? "" : "callback 2\n";
        const std::string wanted = "Initial 0\nCreateChannel 1000 0\n" + call + call +
                                   "CreateChannel 1000 0\nDeleteChannel 2002\nDeleteChannel 2001\nRelease 1000\n";
        EXPECT_EQ(Scenario("nested", "full", std::string("MOVARIX_RUN=") + where), wanted) << where;
    }
}

}    // namespace
}    // namespace corvane::test

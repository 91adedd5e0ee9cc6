#include "COM/comptr.h"
#include "foundation/moduleSupport.h"
#include "foundation/osServices.h"
#include "foundation/qelResource.h"
#include "foundation/qelSystem.h"
#include "foundation/qelThread.h"
#include "platform/sim/control.h"
#include "platform/sim/devicetree.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using Priority = qel::LoggerPriority;

TEST(ManagedThread, ReportsExitCodesAfterJoin) {
    std::atomic<bool> release{false};
    int context = 40;
    qel::ManagedThread worker(
        [&release](qel::ManagedThread& self) {
            while (!release) {
                qel::System::mssleep(1);
            }
            return *static_cast<int*>(self.context()) + 2;
        },
        &context);
    int code = 0;
    EXPECT_FALSE(worker.join()); // not started yet
    ASSERT_TRUE(worker.run("worker"));
    EXPECT_FALSE(worker.run("worker"));
    EXPECT_TRUE(worker.isRunning());
    EXPECT_FALSE(worker.getExitCode(&code));
    release = true;
    EXPECT_TRUE(worker.join());
    EXPECT_FALSE(worker.isRunning());
    ASSERT_TRUE(worker.getExitCode(&code));
    EXPECT_EQ(code, 42);
    EXPECT_FALSE(worker.join()); // already joined

    qel::ManagedThread throwing([](qel::ManagedThread&) -> int { throw std::runtime_error("x"); });
    ASSERT_TRUE(throwing.run("throwing") && throwing.join() && throwing.getExitCode(&code));
    EXPECT_EQ(code, -1);
    qel::ManagedThread selfJoin([](qel::ManagedThread& self) { return self.join() ? 1 : 2; });
    ASSERT_TRUE(selfJoin.run("self") && selfJoin.join() && selfJoin.getExitCode(&code));
    EXPECT_EQ(code, 2);
}

// On virtual time the platform's clock moves only while someone sleeps, by what they slept.
TEST(Stopwatch, CountsTheMillisecondsSinceItsConstruction) {
    struct VirtualTime {
        VirtualTime() { sim::setClockMode(sim::ClockMode::Virtual); }
        ~VirtualTime() { sim::setClockMode(sim::ClockMode::Real); }
    } virtualTime;
    qel::Stopwatch watch;
    EXPECT_EQ(watch.getElapsedMilliseconds(), 0u);
    qel::System::mssleep(250);
    EXPECT_EQ(watch.getElapsedMilliseconds(), 250u);
    qel::Stopwatch later;
    qel::System::mssleep(1500);
    EXPECT_EQ(watch.getElapsedMilliseconds(), 1750u);
    EXPECT_EQ(later.getElapsedMilliseconds(), 1500u);
}

TEST(System, FopenReportsTheErrorOfAFailedOpenOnly) {
    const std::filesystem::path dir =
        std::filesystem::temp_directory_path() / ("libaudio-fopen-" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    auto open = [](const std::filesystem::path& path, const char* mode, DWORD* error) {
        return qel::System::fopen(qel::String(path.string().c_str()), qel::String(mode), error);
    };
    const DWORD untouched = 0xC0FFEE;
    const struct {
        std::filesystem::path path;
        const char* mode;
        DWORD error;
    } failures[] = {{dir / "missing.wav", "rb", ENOENT},
                    {dir / "no" / "such" / "dir.wav", "wb", ENOENT},
                    {dir, "wb", EISDIR}};
    for (const auto& f : failures) {
        SCOPED_TRACE(f.path.string());
        DWORD error = untouched;
        EXPECT_EQ(open(f.path, f.mode, &error), nullptr);
        EXPECT_EQ(error, f.error);
        EXPECT_EQ(open(f.path, f.mode, nullptr), nullptr); // the error is optional
    }
    DWORD error = untouched;
    std::FILE* file = open(dir / "t\xC3\xB6n.wav", "wb", &error); // UTF-8 name
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    EXPECT_EQ(error, untouched);
    EXPECT_TRUE(std::filesystem::exists(dir / "t\xC3\xB6n.wav"));
    std::filesystem::remove_all(dir);
}

TEST(Settings, LookupIgnoresCaseAndLeavesValueAloneWhenMissing) {
    std::filesystem::path path = std::filesystem::temp_directory_path() /
                                 ("libaudio-settings-" + std::to_string(getpid()) + ".ini");
    std::ofstream(path)
        << "; audio settings\n[other]\nuseDirect = no\n[QelRSysInfoDirect]\n"
           "  # the first definition wins\nUseDirect =  yes please \nusedirect = no\n";
    setenv("LIBAUDIO_SETTINGS", path.c_str(), 1);
    auto lookup = [](const char* section, const char* key, qel::String& value) {
        return qel::Resource::getSetting(section, key, value, QELLocale::getGlobalLocale());
    };
    qel::String value;
    ASSERT_TRUE(lookup("qelrsysinfodirect", "USEDIRECT", value));
    EXPECT_EQ(value, qel::String("yes please"));
    EXPECT_FALSE(lookup("qelrsysinfodirect", "absent", value));
    EXPECT_FALSE(lookup("nosuchsection", "useDirect", value));
    std::filesystem::remove(path);
    EXPECT_FALSE(lookup("qelrsysinfodirect", "useDirect", value));
    unsetenv("LIBAUDIO_SETTINGS");
    EXPECT_FALSE(lookup("qelrsysinfodirect", "useDirect", value));
    EXPECT_EQ(value, qel::String("yes please"));
}

TEST(ModuleSupport, GuidToStringUsesRegistryForm) {
    const GUID hdmi = {
        0xD1B9CC2A, 0xF519, 0x417F, {0x91, 0xC9, 0x55, 0xFA, 0x65, 0x48, 0x10, 0x01}};
    EXPECT_EQ(guidToString(&hdmi).toStdString(), "{D1B9CC2A-F519-417F-91C9-55FA65481001}");
    const GUID small = {0xA, 0xB, 0xC, {0, 1, 2, 3, 4, 5, 6, 7}};
    EXPECT_EQ(guidToString(&small).toStdString(), "{0000000A-000B-000C-0001-020304050607}");
}

TEST(OsServices, ParentDeviceInstanceIdFollowsTheDeviceTree) {
    const char* adapter = "PCI\\VEN_8086&DEV_A170\\3&11583659&0&FB";
    sim::clearDeviceTree();
    sim::addDeviceNode(adapter, "");
    sim::addDeviceNode("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0298\\4&2C5E3C0&0&0001", adapter);
    qel::String parent("before");
    ASSERT_TRUE(getParentDeviceInstanceId(
        qel::String("hdaudio\\func_01&ven_10ec&dev_0298\\4&2c5e3c0&0&0001"), parent));
    EXPECT_EQ(parent, qel::String(adapter));
    qel::String unchanged("before");
    EXPECT_FALSE(getParentDeviceInstanceId(qel::String("USB\\VID_0000"), unchanged));
    EXPECT_FALSE(getParentDeviceInstanceId(parent, unchanged)); // a root has no parent
    EXPECT_EQ(unchanged, qel::String("before"));
    sim::clearDeviceTree();
}

// The apartment belongs to the thread, so each case gets a fresh one.
template <class Body> void onFreshThread(Body body) {
    std::thread(body).join();
}

TEST(COMInitializer, UndoesOnlySuccessfulInitializations) {
    onFreshThread([] {
        {
            COMInitializer outer;
            COMInitializer inner; // already initialized: S_FALSE, which still needs undoing
            EXPECT_EQ(outer.result(), S_OK);
            EXPECT_EQ(inner.result(), S_FALSE);
        }
        EXPECT_EQ(sim::comInitCount(), 0);
        EXPECT_EQ(sim::comUninitializeCalls(), 2);
    });
    onFreshThread([] {
        sim::failNextCoInitialize(E_OUTOFMEMORY);
        EXPECT_EQ(COMInitializer().result(), E_OUTOFMEMORY);
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        EXPECT_EQ(COMInitializer().result(), RPC_E_CHANGED_MODE);
        EXPECT_EQ(sim::comUninitializeCalls(), 0);
        EXPECT_EQ(sim::comInitCount(), 1); // the caller's own initialization stays
        CoUninitialize();
    });
}

TEST(COMInitializer, LogsTheResultAtDebugOnly) {
    onFreshThread([] {
        testsupport::LogCapture log(Priority::PRIORITY_DEBUG);
        sim::failNextCoInitialize(RPC_E_CHANGED_MODE);
        { COMInitializer failed; }
        { COMInitializer ok; }
        std::vector<std::string> results;
        bool traced = false;
        for (const std::string& text : log.texts("comptr", Priority::PRIORITY_DEBUG)) {
            const std::string marker = " CoInitialize returns ";
            std::size_t digits = text.find_first_not_of("0123456789");
            if (digits > 0 && digits != std::string::npos &&
                text.compare(digits, marker.size(), marker) == 0) {
                results.push_back(text.substr(digits + marker.size()));
            }
            traced |= text.find("COMInitializer::COMInitializer") != std::string::npos;
        }
        EXPECT_EQ(results, (std::vector<std::string>{"0x80010106", "0x00000000"}));
        EXPECT_TRUE(traced);
    });
    onFreshThread([] {
        testsupport::LogCapture log(Priority::PRIORITY_INFO);
        { COMInitializer quiet; }
        EXPECT_TRUE(log.records().empty());
    });
}

} // namespace

// Helpers of the task and module tests: a fixture that starts the layer in
// a chosen drive mode, and a host loop thread (the Linux looper watching
// the message pipe, driving the manager).
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "zos_test.h"

namespace ktest {

// A thread running a looper with the message pipe on it, so posted
// functions and drive requests run there. The manager's drive requests go
// through the pipe (the host application's post-drive function).
class HostLoop {
  public:
    HostLoop() {
        Zpand_ModSetPostDrv(PostDrive);
        thread_ = std::thread([this] {
            ALooper_prepare(0);
            setup_ = Zpand_UiEvntInit();
            tid_ = std::this_thread::get_id();
            ready_ = true;
            while (!stop_) ALooper_pollOnce(100, nullptr, nullptr, nullptr);
        });
        while (!ready_) std::this_thread::yield();
    }
    ~HostLoop() { Stop(); }
    void Stop() {
        if (!thread_.joinable()) return;
        stop_ = true;
        ALooper_wake(static_cast<ALooper *>(Zpand_UiThreadId()));
        thread_.join();
        Zpand_ModSetPostDrv(nullptr);
    }
    bool SetUp() const { return setup_ == ZOK; }
    std::thread::id Id() const { return tid_; }
    static std::atomic<uint32_t> drives;

  private:
    static void DriveOnce(uintptr_t) {
        drives++;
        Zos_ModDriveMsg();
    }
    static uint32_t PostDrive() { return Zpand_UiProcEvnt(0, DriveOnce); }
    std::thread thread_;
    std::atomic<bool> ready_{false}, stop_{false};
    uint32_t setup_ = ZFAILED;
    std::thread::id tid_;
};
inline std::atomic<uint32_t> HostLoop::drives{0};

// Starts the layer in host-driven mode (the module manager's shared queue
// is drained by Zos_ModDriveMsg calls, no MOD_MGR task).
class HostModTest : public ZosTest {
  protected:
    void SetUp() override {
        Zos_CfgSetModDrvMode(0);
        Zos_CfgSetQueueSize(4096);
        ZosTest::SetUp();
    }
    void TearDown() override {
        Zpand_ModSetPostDrv(nullptr);
        ZosTest::TearDown();
    }
};

}  // namespace ktest

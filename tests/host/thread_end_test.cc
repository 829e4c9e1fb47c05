// SPDX-License-Identifier: Apache-2.0
//
// What a thread leaves behind on the segment's file when it ends: nothing, so that nobody takes a later thread with
// its id for it.
#include <dlfcn.h>
#include <filesystem>
#include <pthread.h>
#include <thread>

#include "tests/host/dying_holder_fixture.h"

namespace {

class ending_thread : public dying_holder {
  protected:
    void use_the_lock() {
        net_lib_db_interface_lock_acquire();
        net_lib_db_interface_lock_release();
        id_ = gettid();
    }
    static int description_of_the_tests_own() {
        return open(interfaces_format.path, O_RDWR | O_CLOEXEC);
    }
    static bool is_announced(pid_t id) {
        return segment_announces(interfaces_format, id);
    }

    pid_t id_ = 0;
};

TEST_F(ending_thread, takes_its_announcement_back) {
    bool announced = false;
    std::thread([&] {
        use_the_lock();
        announced = is_announced(id_);
    }).join();
    EXPECT_TRUE(announced);
    EXPECT_FALSE(is_announced(id_));
    EXPECT_TRUE(is_announced(gettid())) << "others stay";
}

TEST_F(ending_thread, that_took_the_lock_again_and_again_takes_one_announcement_back) {
    for (int i = 0; i < 100; i++) {
        std::thread([&] { use_the_lock(); }).join();
        ASSERT_FALSE(is_announced(id_));
    }
}

// Destructors run in the order of their keys: this one after the library's, and then that once more.
TEST_F(ending_thread, that_takes_the_lock_in_a_later_destructor_takes_its_announcement_back) {
    static bool announced_there;
    announced_there = false;
    pthread_key_t key;
    ASSERT_EQ(0, pthread_key_create(&key, [](void *) {
                  net_lib_db_interface_lock_acquire();
                  net_lib_db_interface_lock_release();
                  announced_there = is_announced(gettid());
              }));
    std::thread([&] {
        (void)pthread_setspecific(key, this);
        use_the_lock();
    }).join();
    EXPECT_TRUE(announced_there);
    EXPECT_FALSE(is_announced(id_));
    (void)pthread_key_delete(key);
}

TEST_F(ending_thread, that_took_the_lock_of_a_database_unloaded_since_ends_in_peace) {
    shared_counter used;
    std::thread thread([&] {
        use_the_lock();
        used.add();
        (void)let_go_.wait_for(1);
    });
    ASSERT_TRUE(used.wait_for(1));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_unload(0));
    ASSERT_EQ(YB_STATUS_SUCCESS, net_lib_db_interfaces_load(0));
    let_go_.add();
    thread.join();
    EXPECT_FALSE(is_announced(id_));
    EXPECT_TRUE(is_announced(gettid())) << "its own byte only, whatever became of the descriptor";
}

// Against the rules. The lock is taken over, and not before the thread has ended.
TEST_F(ending_thread, that_keeps_the_lock_is_succeeded) {
    std::thread thread([&] {
        net_lib_db_interface_lock_acquire();
        held_.add();
        (void)let_go_.wait_for(1);
    });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(2);
    expect_nobody_served();
    let_go_.add();
    thread.join();
    expect_served(1);
}

// Whether the key's destructor comes before the library's or after it.
TEST_F(ending_thread, that_gives_the_lock_back_in_a_destructor_keeps_it_until_then) {
    static shared_counter *let_go;
    let_go = &let_go_;
    pthread_key_t key;
    ASSERT_EQ(0, pthread_key_create(&key, [](void *) {
                  (void)let_go->wait_for(1);
                  net_lib_db_interface_lock_release();
              }));
    std::thread thread([&] {
        (void)pthread_setspecific(key, this);
        net_lib_db_interface_lock_acquire();
        id_ = gettid();
        held_.add();
    });
    ASSERT_TRUE(held_.wait_for(1));
    start_waiters(2);
    expect_nobody_served();
    let_go_.add();
    thread.join();
    expect_served(0);
    EXPECT_FALSE(is_announced(id_));
    (void)pthread_key_delete(key);
}

TEST_F(ending_thread, in_a_forked_child_takes_back_its_own_announcement_alone) {
    child_process child([this] {
        std::thread([&] { use_the_lock(); }).join();
        return is_announced(id_) ? 1 : 0;
    });
    EXPECT_EQ(0, child.wait());
    EXPECT_TRUE(is_announced(gettid()));
}

// A copy of the library, opened and closed at run time.
TEST_F(ending_thread, that_outlives_the_library_ends_in_peace) {
    const std::string copy = "/dev/shm/libybnet_copy.so";
    std::filesystem::copy_file(YBNET_LIBRARY, copy, std::filesystem::copy_options::overwrite_existing);
    child_process child([&copy] {
        void *const library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            return 1;
        const auto function = [library](const char *name) { return dlsym(library, name); };
        const auto load = reinterpret_cast<yb_status_t (*)(uint32_t)>(function("net_lib_db_interfaces_load"));
        const auto unload =
            reinterpret_cast<yb_status_t (*)(uint32_t)>(function("net_lib_db_interfaces_unload"));
        const auto take = reinterpret_cast<void (*)()>(function("net_lib_db_interface_lock_acquire"));
        const auto release = reinterpret_cast<void (*)()>(function("net_lib_db_interface_lock_release"));
        if (load == nullptr || load == net_lib_db_interfaces_load || load(0) != YB_STATUS_SUCCESS)
            return 2;
        shared_counter used;
        shared_counter closed;
        std::thread thread([&] {
            take();
            release();
            used.add();
            (void)closed.wait_for(1);
        });
        (void)used.wait_for(1);
        if (unload(0) != YB_STATUS_SUCCESS || dlclose(library) != 0)
            return 3;
        if (dlopen(copy.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr)
            return 4; // it is still there: nothing would be shown
        closed.add();
        thread.join();
        return 0;
    });
    EXPECT_EQ(0, child.wait());
    std::filesystem::remove(copy);
}

} // namespace

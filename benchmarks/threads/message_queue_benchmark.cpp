// SPDX-License-Identifier: MIT
// Messages that one thread or four post to a thread that waits for them: 8,000 in each round, from
// the start of the senders to the dispatch of the last one.
#include "benchmarks/threads/system_calls.h"
#include "zel/platform/message_queue.h"
#include "zel/threads/event.h"
#include "zel/threads/thread_obj_ex.h"

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <benchmark/benchmark.h>
#include <cmath>
#include <glib.h>
#include <thread>
#include <vector>

namespace {

constexpr int messages = 8'000; // in a round; a queue of ours takes 10,000

// Starts `senders` threads that share the posts of a round.
template <typename Post> std::vector<std::thread> start_senders(int senders, Post post)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < senders; ++i) {
        threads.emplace_back([=] {
            for (int n = 0; n < messages / senders; ++n) {
                post();
            }
        });
    }
    return threads;
}

void join(std::vector<std::thread> & threads)
{
    for (auto & thread : threads) {
        thread.join();
    }
}

int dispatched = 0; // of the present round

namespace with_zel {

zel::event * all_dispatched = nullptr;

// Ends with the last message of the round, and with it the wait for it.
class round_end : public zel::thread_obj_ex {
public:
    round_end()
        : thread_obj_ex(nullptr, "round")
    {
    }

protected:
    unsigned int run() override
    {
        all_dispatched->lock(0xFFFFFFFF);
        return 0;
    }
};

std::intptr_t count(window_handle, unsigned int, std::uintptr_t, std::intptr_t)
{
    if (++dispatched == messages) {
        all_dispatched->set();
    }
    return 0;
}

void run_round(int senders)
{
    static window_handle const window = zel::platform::create_window(count);
    dispatched = 0;
    zel::event last;
    all_dispatched = &last;
    round_end end;
    end.start();
    auto threads
        = start_senders(senders, [] { zel::platform::post_message(window, 0x0400, 0, 0); });
    end.wait_msg_loop();
    join(threads);
}

} // namespace with_zel

namespace with_qt {

class receiver : public QObject {
public:
    QEventLoop loop;

    bool event(QEvent * event) override
    {
        if (event->type() != QEvent::User) {
            return QObject::event(event);
        }
        if (++dispatched == messages) {
            loop.quit();
        }
        return true;
    }
};

void run_round(int senders)
{
    static int argc = 1;
    static char name[] = "benchmark";
    static char * argv[] = {name, nullptr};
    static QCoreApplication const application(argc, argv);
    dispatched = 0;
    receiver to;
    auto threads = start_senders(
        senders, [&to] { QCoreApplication::postEvent(&to, new QEvent(QEvent::User)); });
    to.loop.exec();
    join(threads);
}

} // namespace with_qt

namespace with_glib {

void run_round(int senders)
{
    dispatched = 0;
    GMainLoop * const loop = g_main_loop_new(nullptr, FALSE);
    auto threads = start_senders(senders, [loop] {
        g_idle_add(
            [](void * data) -> gboolean {
                if (++dispatched == messages) {
                    g_main_loop_quit(static_cast<GMainLoop *>(data));
                }
                return G_SOURCE_REMOVE;
            },
            loop);
    });
    g_main_loop_run(loop);
    join(threads);
    g_main_loop_unref(loop);
}

} // namespace with_glib

template <auto run_round, int senders> void post_and_dispatch(benchmark::State & state)
{
    static double const calls = count_system_calls([] { run_round(senders); }) / messages;
    for (auto _ : state) {
        run_round(senders);
    }
    state.SetItemsProcessed(state.iterations() * messages);
    if (!std::isnan(calls)) {
        state.counters["calls"] = calls;
    }
}

#define POST_AND_DISPATCH(run_round, senders, name)                                                \
    BENCHMARK_TEMPLATE(post_and_dispatch, run_round, senders)                                      \
        ->Name(name)                                                                               \
        ->UseRealTime()                                                                            \
        ->Unit(benchmark::kMillisecond)
POST_AND_DISPATCH(with_zel::run_round, 1, "8000 messages of one thread/zel");
POST_AND_DISPATCH(with_qt::run_round, 1, "8000 messages of one thread/QCoreApplication");
POST_AND_DISPATCH(with_glib::run_round, 1, "8000 messages of one thread/GLib");
POST_AND_DISPATCH(with_zel::run_round, 4, "8000 messages of four threads/zel");
POST_AND_DISPATCH(with_qt::run_round, 4, "8000 messages of four threads/QCoreApplication");
POST_AND_DISPATCH(with_glib::run_round, 4, "8000 messages of four threads/GLib");

} // namespace

#include "work_crew.h"

#include "interrupt.h"
#include "progress.h"

#include <pthread.h>

#include <memory>

/* A worker that finds no entry resets `work_ready` and waits for it; whoever publishes entries or completes
 * the list sets it. Both happen inside the section, so no signal is lost between the look and the reset. The
 * last worker to leave a complete list sets `all_done`. */
struct work_crew {
    memory_owner &owner;
    image_reader reader;
    uint64_t jobs;
    qv::event work_ready{};
    qv::event all_done{};
    pthread_t *threads = nullptr;
    uint64_t thread_count = 0;

    memory_section section{owner.tag()};  // guards what follows
    uint64_t published = 0;               // entries of the catalogue, from the first on
    uint64_t next = 0;                    // the first that nobody has taken
    uint64_t done = 0;
    bool is_ready = false;     // `work_ready` is set
    bool is_complete = false;  // no more will be published
    uint64_t workers = 0;      // that have not left yet
    progress display = {};
};

namespace {

void set_ready(work_crew *crew)
{
    if (!crew->is_ready)
        crew->work_ready.set();
    crew->is_ready = true;
}

// The next entry. Null: there is none at the moment, or, when `is_over`, none any more.
catalogue_entry *try_take(work_crew *crew, bool &is_over)
{
    const std::lock_guard inside(crew->section);
    is_over = false;
    if (crew->next < crew->published && !is_interrupted())
        return catalogue_taken(crew->reader.files, crew->next++);
    is_over = crew->is_complete;
    if (!is_over) {
        crew->work_ready.reset();
        crew->is_ready = false;
    }
    return nullptr;
}

catalogue_entry *wait_and_take(work_crew *crew)
{
    for (;;) {
        bool is_over = false;
        catalogue_entry *entry = try_take(crew, is_over);
        if (entry != nullptr || is_over)
            return entry;
        crew->work_ready.wait();
    }
}

void count_done(work_crew *crew)
{
    const std::lock_guard inside(crew->section);
    ++crew->done;
    progress_update(crew->display, crew->done, crew->published, crew->is_complete);
}

void enter_work(work_crew *crew)
{
    const std::lock_guard inside(crew->section);
    ++crew->workers;
}

void leave_work(work_crew *crew)
{
    const std::lock_guard inside(crew->section);
    --crew->workers;
    if (crew->workers == 0 && crew->is_complete)
        crew->all_done.set();
}

void do_work(work_crew *crew)
{
    while (catalogue_entry *entry = wait_and_take(crew)) {
        if (entry->state == entry_state::pending)
            read_image_file(crew->reader, entry);
        count_done(crew);
    }
    leave_work(crew);
}

extern "C" void *run_worker(void *crew)
{
    do_work(static_cast<work_crew *>(crew));
    return nullptr;
}

// Fewer threads than wanted, where the platform refuses one, do the work all the same.
void start_threads(work_crew *crew)
{
    const interrupts_blocked blocked;
    crew->threads = static_cast<pthread_t *>(crew->owner.alloc(crew->jobs * sizeof(pthread_t)));
    for (uint64_t i = 0; crew->threads != nullptr && i < crew->jobs; ++i) {
        enter_work(crew);
        if (pthread_create(&crew->threads[i], nullptr, run_worker, crew) != 0) {
            leave_work(crew);
            return;
        }
        ++crew->thread_count;
    }
}

}  // namespace

work_crew *crew_open(memory_owner &owner, const image_reader &reader, uint64_t jobs)
{
    auto *crew = owner.make<work_crew>(owner, reader, jobs);
    if (crew == nullptr)
        return nullptr;
    if (!crew->section || !crew->work_ready || !crew->all_done) {
        std::destroy_at(crew);
        return nullptr;
    }
    progress_open(crew->display);
    if (jobs > 1)
        start_threads(crew);
    return crew;
}

void crew_publish(work_crew *crew)
{
    const uint64_t added = catalogue_added(crew->reader.files);
    const std::lock_guard inside(crew->section);
    crew->published = added;
    set_ready(crew);
}

void crew_finish(work_crew *crew)
{
    if (crew->thread_count == 0)
        enter_work(crew);
    {
        const std::lock_guard inside(crew->section);
        crew->published = catalogue_added(crew->reader.files);
        crew->is_complete = true;
        if (crew->workers == 0)
            crew->all_done.set();
        set_ready(crew);
    }
    if (crew->thread_count == 0)
        do_work(crew);
    crew->all_done.wait();
    for (uint64_t i = 0; i < crew->thread_count; ++i)
        pthread_join(crew->threads[i], nullptr);
    progress_close(crew->display);
    std::destroy_at(crew);
}

#include "work_crew.h"

#include "catalog_memory.h"
#include "interrupt.h"
#include "progress.h"

#include <pthread.h>

/* A worker that finds no entry resets `work_ready` and waits for it; whoever publishes entries or completes
 * the list sets it. Both happen inside the section, so no signal is lost between the look and the reset. The
 * last worker to leave a complete list sets `all_done`. */
struct work_crew {
    uint64_t tag;
    image_reader reader;
    LPVOID work_ready;
    LPVOID all_done;
    uint64_t jobs;
    pthread_t *threads;
    uint64_t thread_count;

    LPVOID section;      // guards what follows
    uint64_t published;  // entries of the catalogue, from the first on
    uint64_t next;       // the first that nobody has taken
    uint64_t done;
    bool is_ready;     // `work_ready` is set
    bool is_complete;  // no more will be published
    uint64_t workers;  // that have not left yet
    progress display;
};

namespace {

void set_ready(work_crew *crew)
{
    if (!crew->is_ready)
        OS_set_event(crew->work_ready);
    crew->is_ready = true;
}

// The next entry. Null: there is none at the moment, or, when `is_over`, none any more.
catalogue_entry *try_take(work_crew *crew, bool &is_over)
{
    const inside_section inside(crew->section);
    is_over = false;
    if (crew->next < crew->published && !is_interrupted())
        return catalogue_taken(crew->reader.files, crew->next++);
    is_over = crew->is_complete;
    if (!is_over) {
        OS_reset_event(crew->work_ready);
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
        OS_wait_for_event(crew->work_ready);
    }
}

void count_done(work_crew *crew)
{
    const inside_section inside(crew->section);
    ++crew->done;
    progress_update(crew->display, crew->done, crew->published, crew->is_complete);
}

void enter_work(work_crew *crew)
{
    const inside_section inside(crew->section);
    ++crew->workers;
}

void leave_work(work_crew *crew)
{
    const inside_section inside(crew->section);
    --crew->workers;
    if (crew->workers == 0 && crew->is_complete)
        OS_set_event(crew->all_done);
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
    crew->threads = static_cast<pthread_t *>(memory_alloc(crew->tag, crew->jobs * sizeof(pthread_t)));
    for (uint64_t i = 0; crew->threads != nullptr && i < crew->jobs; ++i) {
        enter_work(crew);
        if (pthread_create(&crew->threads[i], nullptr, run_worker, crew) != 0) {
            leave_work(crew);
            return;
        }
        ++crew->thread_count;
    }
}

bool create_objects(work_crew *crew)
{
    crew->section = memory_section(crew->tag);
    return crew->section != nullptr && OS_create_event(&crew->work_ready, 0, nullptr) != 0 &&
           OS_create_event(&crew->all_done, 0, nullptr) != 0;
}

void release_objects(work_crew *crew)
{
    OS_close_event(crew->work_ready);
    OS_close_event(crew->all_done);
    if (crew->section != nullptr)
        memory_section_free(crew->tag, crew->section);
}

}  // namespace

work_crew *crew_open(uint64_t tag, const image_reader &reader, uint64_t jobs)
{
    auto *crew = static_cast<work_crew *>(memory_alloc(tag, sizeof(work_crew)));
    if (crew == nullptr)
        return nullptr;
    *crew = {};
    crew->tag = tag;
    crew->reader = reader;
    crew->jobs = jobs;
    if (!create_objects(crew)) {
        release_objects(crew);
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
    const inside_section inside(crew->section);
    crew->published = added;
    set_ready(crew);
}

void crew_finish(work_crew *crew)
{
    if (crew->thread_count == 0)
        enter_work(crew);
    {
        const inside_section inside(crew->section);
        crew->published = catalogue_added(crew->reader.files);
        crew->is_complete = true;
        if (crew->workers == 0)
            OS_set_event(crew->all_done);
        set_ready(crew);
    }
    if (crew->thread_count == 0)
        do_work(crew);
    OS_wait_for_event(crew->all_done);
    for (uint64_t i = 0; i < crew->thread_count; ++i)
        pthread_join(crew->threads[i], nullptr);
    progress_close(crew->display);
    release_objects(crew);
}

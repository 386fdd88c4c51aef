#include "work_crew.h"

#include "catalog_memory.h"
#include "progress.h"

#include <pthread.h>

namespace {

constexpr uint64_t ITEMS_INCREMENT = 1024;

struct work_item {
    const CHAR *path;
    bool is_named;
};

}  // namespace

/* A worker that finds no item resets `work_ready` and waits for it; whoever adds items or completes the list
 * sets it. Both happen inside the section, so no signal is lost between the look and the reset. The last
 * worker to leave a complete list sets `all_done`. */
struct work_crew {
    uint64_t tag;
    catalogue *files;
    image_reader reader;
    LPVOID work_ready;
    LPVOID all_done;
    uint64_t jobs;
    pthread_t *threads;
    uint64_t thread_count;

    LPVOID section;    // guards what follows
    ZT_DT_ANY *items;  // of work_item, in the order they were met
    uint64_t next;     // the first that nobody has taken
    uint64_t done;
    bool is_complete;  // no item will be added
    uint64_t workers;  // that have not left yet
    progress display;
};

namespace {

// The next item. Null: there is none at the moment, or, when `is_over`, none any more.
work_item *try_take(work_crew *crew, bool &is_over)
{
    const inside_section inside(crew->section);
    is_over = false;
    if (crew->next < array_count(crew->items))
        return static_cast<work_item *>(array_element(crew->items, crew->next++));
    is_over = crew->is_complete;
    if (!is_over)
        OS_reset_event(crew->work_ready);
    return nullptr;
}

work_item *wait_and_take(work_crew *crew)
{
    for (;;) {
        bool is_over = false;
        work_item *item = try_take(crew, is_over);
        if (item != nullptr || is_over)
            return item;
        OS_wait_for_event(crew->work_ready);
    }
}

void count_done(work_crew *crew)
{
    const inside_section inside(crew->section);
    ++crew->done;
    progress_update(crew->display, crew->done, array_count(crew->items));
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
    while (const work_item *item = wait_and_take(crew)) {
        file_report report;
        if (read_image_file(crew->reader, item->path, item->is_named, report))
            catalogue_add(crew->files, item->path, report);
        else
            catalogue_count_skipped(crew->files);
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

bool add_item(work_crew *crew, const CHAR *path, bool named)
{
    auto *item = static_cast<work_item *>(memory_alloc(crew->tag, sizeof(work_item)));
    CHAR *copy = memory_text(crew->tag, path);
    if (item == nullptr || copy == nullptr)
        return false;
    *item = {copy, named};
    return memory_array_add(crew->items, item);
}

bool create_objects(work_crew *crew)
{
    crew->section = memory_section(crew->tag);
    crew->items = memory_array(crew->tag, ITEMS_INCREMENT, nullptr);
    return crew->section != nullptr && crew->items != nullptr &&
           OS_create_event(&crew->work_ready, 0, nullptr) != 0 &&
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

work_crew *crew_open(uint64_t tag, catalogue *files, const image_reader &reader, uint64_t jobs)
{
    auto *crew = static_cast<work_crew *>(memory_alloc(tag, sizeof(work_crew)));
    if (crew == nullptr)
        return nullptr;
    *crew = {};
    crew->tag = tag;
    crew->files = files;
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

void crew_add(work_crew *crew, const CHAR *path, bool named)
{
    const inside_section inside(crew->section);
    if (add_item(crew, path, named))
        OS_set_event(crew->work_ready);
    else
        catalogue_count_lost(crew->files);
}

void crew_finish(work_crew *crew)
{
    if (crew->thread_count == 0)
        enter_work(crew);
    {
        const inside_section inside(crew->section);
        crew->is_complete = true;
        if (crew->workers == 0)
            OS_set_event(crew->all_done);
        OS_set_event(crew->work_ready);
    }
    if (crew->thread_count == 0)
        do_work(crew);
    OS_wait_for_event(crew->all_done);
    for (uint64_t i = 0; i < crew->thread_count; ++i)
        pthread_join(crew->threads[i], nullptr);
    progress_close(crew->display);
    release_objects(crew);
}

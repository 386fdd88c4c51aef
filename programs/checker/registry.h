// What the checker knows of the library's objects: everything that was recorded under a tag, and the objects
// for threads that lie outside every tag. A released object is remembered, until many new ones have come or
// its address serves again, so that a late use can be told from an unknown address.
//
// The functions take the lock themselves, and hand out copies.
#pragma once

#include "places.h"

enum object_kind : uint8_t { BLOCK, ARRAY, VECTOR, SECTION, MEM_SECTION, IDENTIFIER, EVENT };

enum object_state : uint8_t {
    LIVE,
    IN_FLUX,        // an array's vector, while an operation of the array may release it
    GIVEN_TO_FREE,  // released behind the manager's back, which still has it recorded
    RELEASED
};

// What is known of an address.
struct object {
    uint64_t key;  // the address
    uint64_t tag;  // of kinds up to SECTION
    uint64_t size;
    place *made_at;         // where it was recorded, or created
    const place *ended_at;  // of a released one
    object_kind kind;
    object_state state;
    bool is_threaded;  // the mode, of objects for threads

    const place *entered_at;  // of a section or identifier that is held
    uint32_t times_entered;
    int holder;  // the thread
};

inline bool is_handle(object_kind kind)
{
    return kind != BLOCK && kind != VECTOR;
}

const char *noun_of(object_kind kind);

inline bool is_recorded(object_kind kind)
{
    return kind <= SECTION;
}

// Of something that is about to be looked up: its records are fetched meanwhile.
void prepare_look_up(const void *address);

// A copy of what is known of an address. False: nothing.
bool look_up(const void *address, object *copy);

// Something now lives at an address. Returns true when something lived there already: then `earlier` is it.
bool add_object(place *made_at, object_kind kind, const void *address, uint64_t tag, uint64_t size,
                bool is_threaded, object *earlier);

// The end of what lives at an address, where for a recorded object the tag agrees. True: it lived, and `copy`
// is what it was, unless that was a plain block, which is left uncopied. False: nothing is changed, and
// `copy` is what is known; its key is 0 when that is nothing.
bool end_object(const place *where, const void *address, uint64_t tag, object *copy);

// The end that was noted did not come about.
void revive_object(const void *address);

// The end of all that a tag owns, and of everything that is owned.
void end_all_of_tag(const place *where, uint64_t tag);
void end_all(const place *where);

// The slots of an array, which it may replace in an operation: before it and behind it.
void begin_array_operation(const void *array);
void end_array_operation(const place *where, const void *array, const void *slots, uint64_t size);
// An array has ended; its slots end with it.
void end_slots(const place *where, const void *array);

// ---- Tags

void note_tag_drawn(uint64_t tag, const place *where);
const place *place_of_draw(uint64_t tag);

// ---- Sections and identifiers

void note_entered(const void *address, const place *where, bool is_counted);
void note_left(const void *address, bool is_counted);

// ---- The host's free and realloc

// Whether a recorded block may live at an address. Quick, and without the lock; false is certain.
bool may_be_recorded(const void *address);
// True, and noted, when one does.
bool note_given_to_free(const void *address, object *copy);

// ---- Ends

// Visit all places that recorded what still lives under tags, with their totals in `lost`, largest first.
void visit_lost_places(void (*visitor)(place *where, void *context), void *context);
// Visit everything that is held. Under the lock: the visitor asks nothing of the registry.
uint32_t copy_held(object *copies, uint32_t limit);

// Whether any array, section, identifier or event has ended since a number was taken. For a quick way around
// the look-up in operations that come often.
uint32_t endings();

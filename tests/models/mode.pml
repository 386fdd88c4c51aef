/* The search for the thread functions and the choice that follows from it: two threads whose first calls meet,
 * and a critical section that both use.
 *
 * Steps are those of osunix_threads.cpp and osunix_threads.h, one for each access of the binding table and
 * each lookup. Two lookups stand for the twelve. Whether the process has the functions is fixed at the start;
 * with LIBRARY_ARRIVES a library that has them may be loaded at any moment.
 *
 * Claims: a thread that is told "threaded" finds every slot filled; both threads are told the same on every
 * call, so an object is used in the mode in which it was made; in threaded mode one thread at a time is
 * inside, however often it has entered. With LIBRARY_ARRIVES: a search that ends behind a settled mode leaves
 * that mode alone.
 *
 * Planted faults, each of which must break a claim: PROBED_FIRST, SUPPORTED_PRESET, LATE_PUBLISHER (with
 * LIBRARY_ARRIVES), NOT_RECURSIVE.
 */
#define THREADS 2
#define LOOKUPS 2
#define NOBODY 255

bool has_functions;

/* The binding table. */
bool supported = false;
bool probed = false;
byte slots = 0;

byte settled = 2; /* the mode that was published first; 2 none yet */

/* The section: the mode that it was made in, and the platform's recursive mutex. */
byte section_mode = 2;
byte owner = NOBODY;
byte depth = 0;
byte inside = 0;

inline publish(found)
{
#ifdef PROBED_FIRST
    probed = true;
#endif
    if
    :: found > 0 -> slots = found /* the same addresses from whichever thread; none is ever removed */
    :: else
    fi;
    supported = (found == LOOKUPS);
    atomic {
        probed = true;
        if
        :: settled == 2 -> settled = supported
        :: else
        fi
    }
}

inline search(mode)
{
    byte found = 0;
#ifdef SUPPORTED_PRESET
    supported = true;
#endif
    do
    :: found < LOOKUPS ->
        if
        :: has_functions -> found++
        :: else -> break
        fi
    :: else -> break
    od;
#ifdef LATE_PUBLISHER
    publish(found);
#else
#ifdef LIBRARY_ARRIVES
    /* The test and the store are two steps in the code as well, but only a library that arrives between two
     * searches that both find the table unprobed could fall between them; a lock would be the price. */
    atomic {
#endif
    if
    :: !probed -> publish(found)
    :: else
    fi;
#ifdef LIBRARY_ARRIVES
    }
#endif
#endif
    mode = supported;
    found = 0
}

inline ask(mode)
{
    if
    :: probed -> mode = supported
    :: else -> search(mode)
    fi;
    assert(!mode || slots == LOOKUPS);
    assert(mode == settled)
}

inline enter(me, mode)
{
    ask(mode);
    assert(section_mode == mode);
    if
#ifdef NOT_RECURSIVE
    :: mode -> atomic { owner == NOBODY -> owner = me; depth = 1 }
#else
    :: mode -> atomic { owner == NOBODY || owner == me -> owner = me; depth++ }
#endif
    :: else
    fi
}

inline leave(me, mode)
{
    ask(mode);
    if
    :: mode ->
        atomic {
            assert(owner == me);
            depth--;
            if
            :: depth == 0 -> owner = NOBODY
            :: else
            fi
        }
    :: else
    fi
}

proctype user(byte me)
{
    bool mode;
    ask(mode);
    atomic {
        if
        :: section_mode == 2 -> section_mode = mode
        :: else
        fi
    }
    enter(me, mode);
    enter(me, mode);
    if
    :: mode -> inside++; assert(inside == 1); inside--
    :: else
    fi;
    leave(me, mode);
    leave(me, mode)
}

#ifdef LIBRARY_ARRIVES
active proctype loader() { has_functions = true }
#endif

init
{
    atomic {
        if
        :: has_functions = true
        :: has_functions = false
        fi;
        run user(0);
        run user(1)
    }
}

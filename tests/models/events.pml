/* Manual-reset events of threaded mode: three waiters beside two threads that set and reset at will.
 *
 * Steps are those of osunix_threaded.cpp, one for each call of a thread function and each access of the state.
 * The platform's condition variable wakes some of the waiters without cause, once.
 *
 * Claims: a waiter is released only when it has seen the event signalled; set and reset are never blocked by
 * waiters; when all is at rest and the event is signalled, no waiter is left (no wake-up is lost).
 *
 * Planted faults, each of which must break a claim: WAKE_ONE, WAKE_BEFORE_STORE_UNGUARDED, TEST_ONCE,
 * TEST_UNGUARDED.
 */
#define WAITERS 3
#define CONTROLLERS 2
#define OPERATIONS 2 /* of each controller */
#define NOBODY 255

byte guard = NOBODY;
byte state = 0;
bool is_waiting[WAITERS];
bool may_wake_by_itself[WAITERS];
byte released = 0;
byte controllers_done = 0;

inline lock(me) { atomic { guard == NOBODY -> guard = me } }

inline unlock(me)
{
    assert(guard == me);
    guard = NOBODY
}

inline broadcast()
{
    d_step {
        byte i = 0;
        do
        :: i < WAITERS ->
            if
#ifdef WAKE_ONE
            :: is_waiting[i] -> is_waiting[i] = false; i = WAITERS
            :: else -> i++
#else
            :: is_waiting[i] = false; i++
#endif
            fi
        :: else -> break
        od
    }
}

/* Gives the guard up and begins to wait in one step; takes the guard again after a wake-up. */
inline cond_wait(me)
{
    atomic {
        assert(guard == me);
        is_waiting[me] = true;
        guard = NOBODY
    }
end_asleep:
    if
    :: !is_waiting[me]
    :: atomic { may_wake_by_itself[me] -> may_wake_by_itself[me] = false; is_waiting[me] = false }
    fi;
    lock(me)
}

proctype waiter(byte me)
{
#ifdef TEST_UNGUARDED
    if
    :: state == 0 -> lock(me); cond_wait(me); unlock(me)
    :: else
    fi;
#else
    lock(me);
#ifdef TEST_ONCE
    if
    :: state == 0 -> cond_wait(me)
    :: else
    fi;
#else
    do
    :: state == 0 -> cond_wait(me)
    :: else -> break
    od;
#endif
    assert(state != 0); /* released by a signal, not by the wake-up of a reset */
    unlock(me);
#endif
    atomic { released++ }
}

inline store_state_and_wake(me, value)
{
#ifdef WAKE_BEFORE_STORE_UNGUARDED
    broadcast();
    state = value
#else
    lock(me);
    state = value;
    broadcast();
    unlock(me)
#endif
}

proctype controller(byte me)
{
    byte done = 0;
    do
    :: done < OPERATIONS ->
        if
        :: store_state_and_wake(me, 1)
        :: store_state_and_wake(me, 0)
        fi;
        done++
    :: else -> break
    od;
    atomic { controllers_done++ }
}

init
{
    byte n = 0;
    atomic {
        if
        :: state = 0
        :: state = 7 /* any value but 0 is signalled */
        fi;
        do
        :: n < WAITERS ->
            if
            :: may_wake_by_itself[n] = true
            :: may_wake_by_itself[n] = false
            fi;
            run waiter(n);
            n++
        :: else -> break
        od;
        run controller(WAITERS);
        run controller(WAITERS + 1)
    }
    timeout; /* nothing can move any more */
    assert(controllers_done == CONTROLLERS);
    assert(state == 0 || released == WAITERS);
    assert(guard == NOBODY)
}

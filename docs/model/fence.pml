/* The fence between shots and everything that is on its way to them: shots/ShotGate.cpp, and from
 * adaptor/KovCameraHardwareInterface.cpp the one thread that switches or registers, and the adaptor's end.
 *
 * A thread of the vendor layer delivers MESSAGES messages through what it found registered, however long ago. Threads of
 * the service switch or register once each and drop their reference. Within a callback the service may switch, register
 * or drop a reference of its own; the vendor layer may call back within a registration. Every other shot lies at the same
 * address, and all are of one class.
 *
 * The properties:
 *   1. nothing touches a deleted shot             the assertions on `alive`
 *   2. a switch waits for no code outside         no invalid end state; `carriedOut`
 *   3. it waits for the shot's own work           the assertions on `working`
 *   4. what was wished last is what is current    the assertions at the end of `init`
 *
 * ./kov model checks the scenarios that it names, and that each planted fault is found:
 *   -DNO_WAIT  retire does not wait             -DIGNORE_CLOSED  who enters does not look whether the gate is closed
 *   -DONE_LOOK who enters looks at the key once  -DNO_WISH       a second switch does not leave its wish to the first
 */
#ifndef SERVICES
#define SERVICES 2
#endif
#ifndef MESSAGES
#define MESSAGES 1
#endif
#ifndef VENDORS
#define VENDORS 1
#endif
#define SHOTS 3
#define BLOCKS 3
#define NONE 0 /* instead of a shot: the adaptor receives itself */
#define KEY(shot) (1 + (shot) % 2)
#define FREE(b) (closed[b] && !holds[b])

byte key[BLOCKS], user[BLOCKS], inside[BLOCKS], holds[BLOCKS];
bit closed[BLOCKS];
byte blockOf[SHOTS + 1], working[SHOTS + 1];
bit alive[SHOTS + 1];
byte made, current, receiver;
bit carrying, wishRegister, wishSwitch, wishShot, lastShot;
byte references = SERVICES;
bit destroyed;
byte ended;

/* --- The gate */

inline work(b) { /* the shot's own code, which looks at the shot when it begins and when it ends */
    d_step { assert(alive[user[b]]); working[user[b]]++ }
    d_step { assert(alive[user[b]]); working[user[b]]-- }
}

inline enter(b, in) {
#ifdef IGNORE_CLOSED
    d_step { inside[b]++; holds[b]++; in = 1 }
#else
    d_step { inside[b]++; holds[b]++; in = !closed[b] }
#endif
    if
    :: !in -> d_step { inside[b]--; holds[b]-- }
    :: else
    fi
}

inline enterByKey(k, b, in) {
    in = 0; b = 0;
    do
    :: in || b == BLOCKS -> break
    :: else ->
        if
        :: key[b] == k -> enter(b, in)
        :: else
        fi;
#ifndef ONE_LOOK
        if
        :: in && key[b] != k -> d_step { inside[b]--; holds[b]--; in = 0 }
        :: else
        fi;
#endif
        if
        :: !in -> b++
        :: else
        fi
    od
}

inline stepIn(b, in) {
    d_step { inside[b]++; in = !closed[b] }
    if
    :: !in -> inside[b]--
    :: else
    fi
}

inline removeShot(old) {
    if
    :: current != NONE ->
        d_step { old = current; current = NONE }
        closed[blockOf[old]] = 1;
#ifndef NO_WAIT
        inside[blockOf[old]] == 0;
#endif
        d_step { assert(working[old] == 0); alive[old] = 0; holds[blockOf[old]]--; old = 0 }
    :: else
    fi
}

/* Takes the first free block. With as many as shots there is one. */
inline installShot(b) {
    d_step {
        assert(current == NONE);
        made++;
        if
        :: FREE(0) -> b = 0
        :: !FREE(0) && FREE(1) -> b = 1
        :: else -> b = 2
        fi;
        assert(FREE(b));
        holds[b]++;
        blockOf[made] = b
    }
    d_step { key[b] = KEY(made); user[b] = made; alive[made] = 1 }
    d_step { closed[b] = 0; current = made; b = 0 }
}

/* --- The adaptor */

inline dropReference(old, last) {
    atomic { assert(references); references--; last = !references }
    if
    :: last -> assert(!carrying); removeShot(old); destroyed = 1
    :: else
    fi;
    last = 0
}

inline leaveWish(switches, shot, other) {
    d_step {
        other = carrying;
        carrying = 1;
        wishRegister = 1;
        if
        :: switches -> wishSwitch = 1; wishShot = shot; lastShot = shot
        :: else
        fi;
#ifdef NO_WISH
        other = 0;
#endif
    }
}

/* The vendor layer's setCallbacks; the service may switch within it, which leaves a wish. */
inline registerReceiver(within) {
    if
    :: skip
    :: made < SHOTS -> leaveWish(1, 0, within); assert(within); within = 0
    fi;
    receiver = current
}

inline carryOut(switches, shot, other, old, b, last, does, makes) {
    atomic { assert(references); references++ }
    leaveWish(switches, shot, other);
    do
    :: other -> break
    :: else ->
        atomic {
            carrying = wishRegister; other = !wishRegister; does = wishSwitch; makes = wishShot;
            wishRegister = 0; wishSwitch = 0; wishShot = 0
        }
        if
        :: other
        :: !other ->
            if
            :: does -> removeShot(old)
            :: else
            fi;
            registerReceiver(does);
            if
            :: makes && made < SHOTS -> installShot(b); registerReceiver(does)
            :: else -> lastShot = (makes -> 0 : lastShot) /* the model has no shot left to make */
            fi
        fi
    od;
    atomic { other = 0; does = 0; makes = 0 }
    dropReference(old, last)
}

/* --- The threads */

proctype Service() {
    byte old, b; bit other, last, does, makes, switches, shot;
    if
    :: switches = 0
    :: switches = 1; shot = 1
    :: switches = 1; shot = 0
    fi;
    carryOut(switches, shot, other, old, b, last, does, makes);
    dropReference(old, last);
    ended++
}

proctype Vendor() {
    byte to, b, b2, old, n; bit in, other, last, does, makes, switches, shot, held;
    do
    :: n == MESSAGES -> break
    :: else ->
        to = receiver;
        n++;
        if
        :: to == NONE -> b = BLOCKS /* straight to the adaptor */
        :: else ->
            enterByKey(KEY(to), b, in);
            if
            :: in ->
                assert(key[b] == KEY(to)); /* else the pointer is another object's, or nobody's */
                work(b);
                inside[b]-- /* steps out */
            :: else
            fi
        fi;
        if
        :: in || to == NONE ->
            d_step { held = (references > 0); references = references + held } /* attemptIncStrong */
            if
            :: held ->
                assert(!destroyed);
                if /* the service's callback */
                :: skip
                :: switches = 0; carryOut(switches, shot, other, old, b2, last, does, makes)
                :: switches = 1; shot = 1; carryOut(switches, shot, other, old, b2, last, does, makes); shot = 0
                fi;
                dropReference(old, last);
                held = 0
            :: else
            fi;
            if
            :: in ->
                stepIn(b, in);
                if
                :: in -> work(b); d_step { inside[b]--; holds[b]--; in = 0 }
                :: else -> holds[b]--
                fi
            :: else
            fi
        :: else
        fi;
        atomic { to = 0; b = 0; in = 0; switches = 0 }
    od;
    ended++
}

init {
    byte b; byte n;
    d_step { carrying = 1; lastShot = 1; closed[0] = 1; closed[1] = 1; closed[2] = 1 }
    installShot(b);
    d_step { receiver = current; carrying = 0 }
    atomic {
        for (n : 1 .. SERVICES) { run Service() }
        for (n : 1 .. VENDORS) { run Vendor() }
    }
    ended == SERVICES + VENDORS;
    /* 4, and nobody and nothing is left over. */
    assert(!carrying && !wishRegister && !wishSwitch);
    assert(destroyed && !alive[1] && !alive[2] && !alive[3]);
    assert(!holds[0] && !holds[1] && !holds[2] && !inside[0] && !inside[1] && !inside[2])
}

/* 4: whenever nobody is at it, what is current is what was wished last, and it is what receives. */
ltl lastWins { [](carrying || !made || destroyed || references == 0 || ((current != NONE) == lastShot && receiver == current)) }
/* 2: a wish is carried out. */
ltl carriedOut { [](wishRegister -> <>(!wishRegister)) }

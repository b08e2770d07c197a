/* Counts the guest instructions that a program executes under qemu-user,
 * across all its threads, and prints the total when the program exits:
 *
 *   qemu-aarch64 -plugin libinsn_count.so[,out=FILE][,uncounted=FILE][,mnemonics=FILE][,symbols=FILE] PROGRAM ...
 *
 * Each translated block gets an execution callback that adds the block's
 * instruction count to the total of the thread that executes it (user-mode
 * threads are vCPUs that run at the same time); the thread totals are added
 * up at exit. The total goes to FILE as "insns N", or to standard error as
 * "insn_count: N" without out=.
 *
 * uncounted=FILE names functions whose calls are left out of the total, one
 * per line: "ADDRESS SIZE NAME", the entry address and size in hex as
 * `nm -S` prints them (the lowest bit of the address, the Thumb mark, is
 * ignored; the size and name are only for the reader). When a thread enters
 * such a function by a call instruction (bl, blx, blr), everything that
 * thread executes from the entry until the call returns (the first block
 * that starts at the instruction after the call), the functions called on
 * the way included, is counted apart, as "uncounted N" on a second line of
 * FILE; calls nested in an uncounted call change nothing. Entering such a
 * function by a jump (a tail call) would leave its return unknown: the
 * plugin then writes no total but an "error" line and an error message.
 *
 * With mnemonics=FILE the plugin also keeps a count per mnemonic (the first
 * word of the disassembly) of the counted instructions, and with
 * symbols=FILE a count per function (the name qemu finds for the address in
 * the executable's symbol table, "?" where it has none) of all instructions
 * executed, with the uncounted ones as a third column; each is written,
 * largest first, to its FILE. They cost a loop over the block's
 * instructions at every execution, so they are off unless asked for.
 *
 * A block that is left early (a fault, or a system call in its middle) is
 * counted whole; the error is a few instructions per such exit.
 *
 * qemu ships no header for its plugin interface in Debian, so the few
 * declarations used here are written out below from the documented plugin
 * API, version 1, as qemu 7.2 in Debian provides it. */
#include <inttypes.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- the plugin interface, as documented ---- */
#define PLUGIN_EXPORT __attribute__((visibility("default")))

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS, QEMU_PLUGIN_CB_R_REGS, QEMU_PLUGIN_CB_RW_REGS };
typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb* tb);
typedef void (*qemu_plugin_vcpu_udata_cb_t)(unsigned int vcpu_index, void* userdata);
typedef void (*qemu_plugin_vcpu_simple_cb_t)(qemu_plugin_id_t id, unsigned int vcpu_index);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* userdata);

void qemu_plugin_register_vcpu_init_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_simple_cb_t cb);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* tb, qemu_plugin_vcpu_udata_cb_t cb,
                                          enum qemu_plugin_cb_flags flags, void* userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* tb, size_t idx);
char* qemu_plugin_insn_disas(const struct qemu_plugin_insn* insn);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn* insn);
size_t qemu_plugin_insn_size(const struct qemu_plugin_insn* insn);
const char* qemu_plugin_insn_symbol(const struct qemu_plugin_insn* insn);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void* userdata);

PLUGIN_EXPORT int qemu_plugin_version = 1;
PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv);

/* ---- the functions whose calls are not counted ---- */
static uint64_t* entries;
static size_t entry_count;

static int read_uncounted(const char* path) {
    FILE* f = fopen(path, "r");
    if (f == NULL) {
        fprintf(stderr, "insn_count: cannot read %s\n", path);
        return -1;
    }
    char line[512];
    size_t cap = 0;
    while (fgets(line, sizeof(line), f) != NULL) {
        uint64_t start, size;
        if (line[0] == '#' || line[0] == '\n') continue;
        if (sscanf(line, "%" SCNx64 " %" SCNx64, &start, &size) != 2) {
            fprintf(stderr, "insn_count: %s: not ADDRESS SIZE NAME: %s", path, line);
            fclose(f);
            return -1;
        }
        if (entry_count == cap) {
            cap = cap ? 2 * cap : 64;
            entries = realloc(entries, cap * sizeof(*entries));
            if (entries == NULL) abort();
        }
        entries[entry_count++] = start & ~(uint64_t)1;
    }
    fclose(f);
    return 0;
}

static int is_entry(uint64_t vaddr) {
    for (size_t i = 0; i < entry_count; ++i) {
        if (entries[i] == vaddr) return 1;
    }
    return 0;
}

/* A call: bl, blx, blr (and the pointer-authenticating blraa ...), or a
 * conditional bl of the A32 instruction set (bleq ... blle). */
static int is_call(const char* disas) {
    char m[16];
    size_t len = 0;
    while (*disas == ' ') ++disas;
    while (disas[len] != '\0' && disas[len] != ' ' && disas[len] != '\t' && len + 1 < sizeof(m)) {
        m[len] = disas[len];
        ++len;
    }
    m[len] = '\0';
    if (strcmp(m, "bl") == 0 || strcmp(m, "blx") == 0 || strncmp(m, "blr", 3) == 0) return 1;
    static const char* const conds[] = {"eq", "ne", "cs", "hs", "cc", "lo", "mi", "pl",
                                        "vs", "vc", "hi", "ls", "ge", "lt", "gt", "le"};
    if (len == 4 && m[0] == 'b' && m[1] == 'l') {
        for (size_t i = 0; i < sizeof(conds) / sizeof(conds[0]); ++i) {
            if (strcmp(m + 2, conds[i]) == 0) return 1;
        }
    }
    return 0;
}

/* ---- the optional histograms (by mnemonic, by function) ---- */
#define MAX_NAMES 8192
struct entry {
    char name[72];
    uint64_t count, uncounted;
};
struct histogram {
    char* path;
    struct entry* entries;
    int count;
    pthread_mutex_t lock;
};
static struct histogram by_mnemonic = {NULL, NULL, 0, PTHREAD_MUTEX_INITIALIZER};
static struct histogram by_symbol = {NULL, NULL, 0, PTHREAD_MUTEX_INITIALIZER};

static uint16_t entry_index(struct histogram* h, const char* name) {
    char key[sizeof(h->entries[0].name)];
    snprintf(key, sizeof(key), "%s", name);
    pthread_mutex_lock(&h->lock);
    if (h->entries == NULL) {
        h->entries = calloc(MAX_NAMES, sizeof(struct entry));
        if (h->entries == NULL) abort();
    }
    int i = 0;
    while (i < h->count && strcmp(h->entries[i].name, key) != 0) ++i;
    if (i == h->count) {
        if (h->count == MAX_NAMES) {
            i = MAX_NAMES - 1; /* the last slot collects the overflow */
            strcpy(h->entries[i].name, "(other)");
        } else {
            strcpy(h->entries[i].name, key);
            ++h->count;
        }
    }
    pthread_mutex_unlock(&h->lock);
    return (uint16_t)i;
}

static uint16_t mnemonic_index(const char* disas) {
    char name[24];
    size_t len = 0;
    while (*disas == ' ') ++disas;
    while (disas[len] != '\0' && disas[len] != ' ' && disas[len] != '\t' && len + 1 < sizeof(name)) {
        name[len] = disas[len];
        ++len;
    }
    name[len] = '\0';
    return entry_index(&by_mnemonic, name);
}

/* ---- the count ---- */

/* A translated block, kept for the life of the process (it may be executed
 * until exit). */
struct block {
    uint64_t start, end; /* the first instruction's address, the address after the last */
    uint32_t n;
    uint8_t entry; /* starts at the entry of an uncounted function */
    uint8_t call;  /* ends with a call */
    uint16_t* mnemonic;
    uint16_t* symbol;
};

/* Per vCPU (thread): its totals and where it is; only that thread writes
 * them, and the totals are read at exit, when the other threads are
 * stopped. */
#define MAX_VCPUS 4096
struct vcpu {
    uint64_t counted, uncounted;
    uint64_t prev_end; /* the address after the last block executed */
    uint64_t ret;      /* inside an uncounted call: where it returns */
    uint8_t prev_call; /* the last block ended with a call */
    uint8_t inside;
    char pad[64 - 4 * sizeof(uint64_t) - 2];
};
static struct vcpu vcpus[MAX_VCPUS];
static uint64_t jumps_in; /* uncounted functions entered by a jump */
static uint64_t too_many; /* blocks of vCPUs beyond MAX_VCPUS */
static char* out_path;

static void on_vcpu_init(qemu_plugin_id_t id, unsigned int i) {
    (void)id;
    if (i < MAX_VCPUS) {
        vcpus[i].inside = 0;
        vcpus[i].prev_call = 0;
        vcpus[i].prev_end = 0;
    }
}

static void on_block(unsigned int i, void* data) {
    const struct block* b = data;
    if (i >= MAX_VCPUS) {
        __atomic_fetch_add(&too_many, 1, __ATOMIC_RELAXED);
        return;
    }
    struct vcpu* v = &vcpus[i];
    if (v->inside && b->start == v->ret) v->inside = 0;
    if (!v->inside && b->entry) {
        if (v->prev_call) {
            v->inside = 1;
            v->ret = v->prev_end;
        } else {
            __atomic_fetch_add(&jumps_in, 1, __ATOMIC_RELAXED);
        }
    }
    if (v->inside) {
        v->uncounted += b->n;
    } else {
        v->counted += b->n;
    }
    v->prev_end = b->end;
    v->prev_call = b->call;
    for (size_t k = 0; k < b->n && (b->mnemonic != NULL || b->symbol != NULL); ++k) {
        if (b->mnemonic != NULL && !v->inside) {
            __atomic_fetch_add(&by_mnemonic.entries[b->mnemonic[k]].count, 1, __ATOMIC_RELAXED);
        }
        if (b->symbol != NULL) {
            struct entry* e = &by_symbol.entries[b->symbol[k]];
            __atomic_fetch_add(v->inside ? &e->uncounted : &e->count, 1, __ATOMIC_RELAXED);
        }
    }
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
    (void)id;
    const size_t n = qemu_plugin_tb_n_insns(tb);
    struct block* b = calloc(1, sizeof(struct block));
    if (b == NULL || n == 0) abort();
    const struct qemu_plugin_insn* first = qemu_plugin_tb_get_insn(tb, 0);
    const struct qemu_plugin_insn* last = qemu_plugin_tb_get_insn(tb, n - 1);
    b->start = qemu_plugin_insn_vaddr(first);
    b->end = qemu_plugin_insn_vaddr(last) + qemu_plugin_insn_size(last);
    b->n = (uint32_t)n;
    b->entry = (uint8_t)is_entry(b->start);
    char* disas = qemu_plugin_insn_disas(last);
    b->call = (uint8_t)(disas != NULL && is_call(disas));
    free(disas);
    if (by_mnemonic.path != NULL) b->mnemonic = malloc(n * sizeof(uint16_t));
    if (by_symbol.path != NULL) b->symbol = malloc(n * sizeof(uint16_t));
    if ((by_mnemonic.path != NULL && b->mnemonic == NULL) || (by_symbol.path != NULL && b->symbol == NULL)) abort();
    for (size_t k = 0; k < n && (b->mnemonic != NULL || b->symbol != NULL); ++k) {
        const struct qemu_plugin_insn* insn = qemu_plugin_tb_get_insn(tb, k);
        if (b->mnemonic != NULL) {
            char* d = qemu_plugin_insn_disas(insn);
            b->mnemonic[k] = mnemonic_index(d != NULL ? d : "?");
            free(d);
        }
        if (b->symbol != NULL) {
            const char* sym = qemu_plugin_insn_symbol(insn);
            b->symbol[k] = entry_index(&by_symbol, sym != NULL ? sym : "?");
        }
    }
    qemu_plugin_register_vcpu_tb_exec_cb(tb, on_block, QEMU_PLUGIN_CB_NO_REGS, b);
}

static int by_count(const void* a, const void* b) {
    const struct entry* x = a;
    const struct entry* y = b;
    if (x->count + x->uncounted != y->count + y->uncounted) {
        return x->count + x->uncounted > y->count + y->uncounted ? -1 : 1;
    }
    return strcmp(x->name, y->name);
}

static void write_histogram(struct histogram* h, int with_uncounted) {
    if (h->path == NULL) return;
    qsort(h->entries, (size_t)h->count, sizeof(h->entries[0]), by_count);
    FILE* f = fopen(h->path, "w");
    if (f == NULL) {
        fprintf(stderr, "insn_count: cannot write %s\n", h->path);
        return;
    }
    for (int i = 0; i < h->count; ++i) {
        if (with_uncounted) {
            fprintf(f, "%s %llu %llu\n", h->entries[i].name, (unsigned long long)h->entries[i].count,
                    (unsigned long long)h->entries[i].uncounted);
        } else {
            fprintf(f, "%s %llu\n", h->entries[i].name, (unsigned long long)h->entries[i].count);
        }
    }
    fclose(f);
}

static void on_exit_(qemu_plugin_id_t id, void* p) {
    (void)id;
    (void)p;
    uint64_t n = 0, u = 0;
    for (int i = 0; i < MAX_VCPUS; ++i) {
        n += vcpus[i].counted;
        u += vcpus[i].uncounted;
    }
    const uint64_t jumps = __atomic_load_n(&jumps_in, __ATOMIC_RELAXED);
    const uint64_t lost = __atomic_load_n(&too_many, __ATOMIC_RELAXED);
    char text[256];
    if (jumps != 0 || lost != 0) {
        snprintf(text, sizeof(text), "error %llu uncounted-function entries by a jump, %llu blocks of vCPUs over %d\n",
                 (unsigned long long)jumps, (unsigned long long)lost, MAX_VCPUS);
        fprintf(stderr, "insn_count: %s", text);
    } else if (out_path != NULL) {
        snprintf(text, sizeof(text), "insns %llu\nuncounted %llu\n", (unsigned long long)n, (unsigned long long)u);
    } else {
        snprintf(text, sizeof(text), "insn_count: %llu\ninsn_count: uncounted %llu\n", (unsigned long long)n,
                 (unsigned long long)u);
    }
    if (out_path != NULL) {
        FILE* f = fopen(out_path, "w");
        if (f != NULL) {
            fputs(text, f);
            fclose(f);
        } else {
            fprintf(stderr, "insn_count: cannot write %s\n", out_path);
        }
    } else if (jumps == 0 && lost == 0) {
        fputs(text, stderr);
    }
    write_histogram(&by_mnemonic, 0);
    write_histogram(&by_symbol, 1);
}

PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
    (void)info;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "out=", 4) == 0) {
            out_path = strdup(argv[i] + 4);
        } else if (strncmp(argv[i], "uncounted=", 10) == 0) {
            if (read_uncounted(argv[i] + 10) != 0) return -1;
        } else if (strncmp(argv[i], "mnemonics=", 10) == 0) {
            by_mnemonic.path = strdup(argv[i] + 10);
        } else if (strncmp(argv[i], "symbols=", 8) == 0) {
            by_symbol.path = strdup(argv[i] + 8);
        } else {
            fprintf(stderr,
                    "insn_count: unknown argument %s (out=FILE, uncounted=FILE, mnemonics=FILE, symbols=FILE)\n",
                    argv[i]);
            return -1;
        }
    }
    qemu_plugin_register_vcpu_init_cb(id, on_vcpu_init);
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
    qemu_plugin_register_atexit_cb(id, on_exit_, NULL);
    return 0;
}

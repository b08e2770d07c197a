/* Counts the guest instructions that a program executes under qemu-user,
 * across all its threads, and prints the total when the program exits:
 *
 *   qemu-aarch64 -plugin libinsn_count.so[,out=FILE][,mnemonics=FILE] PROGRAM ...
 *
 * Each translated block gets an execution callback that adds the block's
 * instruction count to one atomic total (user-mode threads are vCPUs that
 * run at the same time). The total goes to FILE as "insns N", or to standard
 * error as "insn_count: N" without out=. With mnemonics=FILE the plugin also
 * keeps a count per mnemonic (the first word of the disassembly) and writes
 * them, largest first, to FILE; that costs a loop over the block's
 * instructions at every execution, so it is off unless asked for.
 *
 * A block that is left early (a fault, or a system call in its middle) is
 * counted whole; the error is a few instructions per such exit.
 *
 * qemu ships no header for its plugin interface in Debian, so the few
 * declarations used here are written out below from the documented plugin
 * API, version 1 (qemu 4.2 to 8.x). */
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
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void* userdata);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* tb, qemu_plugin_vcpu_udata_cb_t cb,
                                          enum qemu_plugin_cb_flags flags, void* userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb* tb, size_t idx);
char* qemu_plugin_insn_disas(const struct qemu_plugin_insn* insn);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void* userdata);

PLUGIN_EXPORT int qemu_plugin_version = 1;
PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv);

/* ---- the count ---- */
static uint64_t total;
static char* out_path;

static void on_block(unsigned int vcpu, void* n) {
    (void)vcpu;
    __atomic_fetch_add(&total, (uint64_t)(uintptr_t)n, __ATOMIC_RELAXED);
}

/* ---- the optional mnemonic histogram ---- */
#define MAX_MNEMONICS 4096
struct mnemonic {
    char name[24];
    uint64_t count;
};
static struct mnemonic mnemonics[MAX_MNEMONICS];
static int mnemonic_count;
static pthread_mutex_t mnemonic_lock = PTHREAD_MUTEX_INITIALIZER;
static char* mnemonics_path;

/* A translated block's instructions as indices into the table. */
struct block {
    size_t n;
    uint16_t index[];
};

static uint16_t mnemonic_index(const char* disas) {
    char name[24];
    size_t len = 0;
    while (disas[len] == ' ') ++disas;
    while (disas[len] != '\0' && disas[len] != ' ' && disas[len] != '\t' && len + 1 < sizeof(name)) {
        name[len] = disas[len];
        ++len;
    }
    name[len] = '\0';
    pthread_mutex_lock(&mnemonic_lock);
    int i = 0;
    while (i < mnemonic_count && strcmp(mnemonics[i].name, name) != 0) ++i;
    if (i == mnemonic_count) {
        if (mnemonic_count == MAX_MNEMONICS) {
            i = MAX_MNEMONICS - 1; /* the last slot collects the overflow */
            strcpy(mnemonics[i].name, "(other)");
        } else {
            memcpy(mnemonics[i].name, name, len + 1);
            ++mnemonic_count;
        }
    }
    pthread_mutex_unlock(&mnemonic_lock);
    return (uint16_t)i;
}

static void on_block_mnemonics(unsigned int vcpu, void* data) {
    const struct block* b = data;
    on_block(vcpu, (void*)(uintptr_t)b->n);
    for (size_t i = 0; i < b->n; ++i) __atomic_fetch_add(&mnemonics[b->index[i]].count, 1, __ATOMIC_RELAXED);
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
    (void)id;
    const size_t n = qemu_plugin_tb_n_insns(tb);
    if (mnemonics_path == NULL) {
        qemu_plugin_register_vcpu_tb_exec_cb(tb, on_block, QEMU_PLUGIN_CB_NO_REGS, (void*)(uintptr_t)n);
        return;
    }
    /* Kept for the life of the process: a block may be executed until exit. */
    struct block* b = malloc(sizeof(struct block) + n * sizeof(uint16_t));
    if (b == NULL) abort();
    b->n = n;
    for (size_t i = 0; i < n; ++i) {
        char* disas = qemu_plugin_insn_disas(qemu_plugin_tb_get_insn(tb, i));
        b->index[i] = mnemonic_index(disas != NULL ? disas : "?");
        free(disas);
    }
    qemu_plugin_register_vcpu_tb_exec_cb(tb, on_block_mnemonics, QEMU_PLUGIN_CB_NO_REGS, b);
}

static int by_count(const void* a, const void* b) {
    const uint64_t x = ((const struct mnemonic*)a)->count, y = ((const struct mnemonic*)b)->count;
    if (x != y) return x > y ? -1 : 1;
    return strcmp(((const struct mnemonic*)a)->name, ((const struct mnemonic*)b)->name);
}

static void on_exit_(qemu_plugin_id_t id, void* p) {
    (void)id;
    (void)p;
    const uint64_t n = __atomic_load_n(&total, __ATOMIC_RELAXED);
    if (out_path != NULL) {
        FILE* f = fopen(out_path, "w");
        if (f != NULL) {
            fprintf(f, "insns %llu\n", (unsigned long long)n);
            fclose(f);
        } else {
            fprintf(stderr, "insn_count: cannot write %s\n", out_path);
        }
    } else {
        fprintf(stderr, "insn_count: %llu\n", (unsigned long long)n);
    }
    if (mnemonics_path != NULL) {
        qsort(mnemonics, (size_t)mnemonic_count, sizeof(mnemonics[0]), by_count);
        FILE* f = fopen(mnemonics_path, "w");
        if (f != NULL) {
            for (int i = 0; i < mnemonic_count; ++i) {
                fprintf(f, "%s %llu\n", mnemonics[i].name, (unsigned long long)mnemonics[i].count);
            }
            fclose(f);
        } else {
            fprintf(stderr, "insn_count: cannot write %s\n", mnemonics_path);
        }
    }
}

PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void* info, int argc, char** argv) {
    (void)info;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "out=", 4) == 0) {
            out_path = strdup(argv[i] + 4);
        } else if (strncmp(argv[i], "mnemonics=", 10) == 0) {
            mnemonics_path = strdup(argv[i] + 10);
        } else {
            fprintf(stderr, "insn_count: unknown argument %s (out=FILE, mnemonics=FILE)\n", argv[i]);
            return -1;
        }
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
    qemu_plugin_register_atexit_cb(id, on_exit_, NULL);
    return 0;
}

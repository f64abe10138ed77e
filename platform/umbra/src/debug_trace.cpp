#include "umbra/debug_trace.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "debug_flags.h"
#include "library_lock.h"
#include "text_line.h"

namespace {

// What a pipe takes in one piece.
constexpr size_t line_max = 4096;
constexpr size_t text_max = 2048;
constexpr char cut_mark[] = " [cut]";
constexpr uint32_t silenced_max = 32;

struct output_setup {
    int stream = STDERR_FILENO;
    int syslog_priority = -1;
    umbra_dt_line_fn callback = nullptr;
    void *ctx = nullptr;
};

// Guarded by the lock on flags.
constinit output_setup outputs;
char silenced[silenced_max][UMBRA_DT_NAME_MAX + 1];
uint32_t silenced_count;
uint32_t callbacks_running;
uint32_t callbacks_running_forks;  // as of how many forks

std::atomic<uint64_t> lost_lines{0};
__thread bool is_in_callback __attribute__((tls_model("initial-exec")));

// What a log needs of what the lock guards, and the places where it writes.
struct log_job {
    output_setup to;  // without what the filter word does not select
    char path[UMBRA_DT_PATH_MAX + 1];
    size_t path_length;
};

// Threads that were in a callback when the process forked are not in the child. Under the lock.
void forget_threads_of_parent() {
    if (callbacks_running_forks != umbra::forks()) {
        callbacks_running_forks = umbra::forks();
        callbacks_running = is_in_callback ? 1 : 0;
    }
}

void begin_callback() {
    forget_threads_of_parent();
    ++callbacks_running;
}

void end_callback() {
    const umbra::library_lock held(umbra::guarded::flags);
    forget_threads_of_parent();
    --callbacks_running;
}

uint32_t find_silenced(const char *text) {
    uint32_t i = 0;
    while (i < silenced_count && strcmp(silenced[i], text) != 0) {
        ++i;
    }
    return i;
}

bool is_silenced(const char *format) {
    uint32_t i = 0;
    while (i < silenced_count && strstr(format, silenced[i]) == nullptr) {
        ++i;
    }
    return i < silenced_count;
}

output_setup selected_outputs(uint32_t filter) {
    output_setup to = outputs;
    if ((filter & UMBRA_DT_STREAM) == 0) {
        to.stream = -1;
    }
    if ((filter & UMBRA_DT_SYSLOG) == 0) {
        to.syslog_priority = -1;
    }
    if ((filter & UMBRA_DT_CALLBACK) == 0 || is_in_callback) {
        to.callback = nullptr;
    }
    return to;
}

// Returns false when there is nothing to do. A job with a callback counts as running it: end_callback() has to follow.
bool take_job(uint64_t flag, uint32_t filter, const char *format, log_job *job) {
    const umbra::library_lock held(umbra::guarded::flags);
    const umbra::flag_slot *slot = umbra::slot_of(flag);
    if (slot == nullptr || is_silenced(format)) {
        return false;
    }
    job->to = selected_outputs(filter);
    if (job->to.stream < 0 && job->to.syslog_priority < 0 && job->to.callback == nullptr) {
        return false;
    }
    if (job->to.callback != nullptr) {
        begin_callback();
    }
    memcpy(job->path, slot->path, slot->path_length);
    job->path_length = slot->path_length;
    return true;
}

// The C library's own calendar takes a lock and may read files: days since 1970-01-01 to a date, in years that begin
// in March, so that the leap day comes last.
void put_date(umbra::text_line &line, uint64_t days) {
    constexpr uint64_t days_of_400_years = 146097;
    constexpr uint64_t days_from_0000_03_01 = 719468;
    const uint64_t day = days + days_from_0000_03_01;
    const uint64_t in_era = day % days_of_400_years;
    const uint64_t year_of_era = (in_era - in_era / 1460 + in_era / 36524 - in_era / 146096) / 365;
    const uint64_t in_year = in_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const uint64_t from_march = (5 * in_year + 2) / 153;
    const uint64_t month = from_march < 10 ? from_march + 3 : from_march - 9;
    line.put_number(day / days_of_400_years * 400 + year_of_era + (month <= 2 ? 1 : 0), 4);
    line.put('-');
    line.put_number(month, 2);
    line.put('-');
    line.put_number(in_year - (153 * from_march + 2) / 5 + 1, 2);
}

void put_time(umbra::text_line &line) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto seconds = static_cast<uint64_t>(now.tv_sec);
    put_date(line, seconds / 86400);
    line.put('T');
    line.put_number(seconds / 3600 % 24, 2);
    line.put(':');
    line.put_number(seconds / 60 % 60, 2);
    line.put(':');
    line.put_number(seconds % 60, 2);
    line.put('.');
    line.put_number(static_cast<uint64_t>(now.tv_nsec) / 1000, 6);
    line.put('Z');
}

void put_source(umbra::text_line &line) {
    line.put(' ');
    line.put_number(static_cast<uint64_t>(getpid()));
    line.put('/');
    line.put_number(static_cast<uint64_t>(gettid()));
    line.put(' ');
}

// Puts the formatted text; returns whether it was cut.
__attribute__((format(printf, 2, 0))) bool put_text(umbra::text_line &line, const char *format, va_list args) {
    char text[text_max + 2];  // one byte more than is used shows whether the last character is whole
    const int formatted = vsnprintf(text, sizeof text, format, args);
    if (formatted < 0) {
        line.put_escaped(format, strlen(format));
        return false;
    }
    auto length = static_cast<size_t>(formatted);
    const bool is_cut = length > text_max;
    if (is_cut) {
        length = umbra::whole_characters(text, text_max);
    } else if (length > 0 && text[length - 1] == '\n') {
        --length;
    }
    line.put_escaped(text, length);
    return is_cut;
}

void write_stream(const log_job &job, char *line, size_t length) {
    line[length] = '\n';
    if (umbra::write_whole(job.to.stream, line, length + 1) != 0) {
        lost_lines.fetch_add(1, std::memory_order_relaxed);
    }
    line[length] = '\0';
}

void run_callback(const log_job &job, const char *line, size_t length) {
    is_in_callback = true;
    job.to.callback(line, length, job.to.ctx);
    is_in_callback = false;
    end_callback();
}

// `line` ends with a NUL that a line feed can take the place of.
void hand_out(const log_job &job, char *line, size_t length, size_t path_at) {
    if (job.to.stream >= 0) {
        write_stream(job, line, length);
    }
    if (job.to.syslog_priority >= 0) {
        syslog(job.to.syslog_priority, "%s", line + path_at);
    }
    if (job.to.callback != nullptr) {
        run_callback(job, line, length);
    }
}

// Out of line: a site that logs nothing shall not pay for this one's buffers.
__attribute__((noinline, format(printf, 3, 0))) void log_line(uint64_t flag, uint32_t filter, const char *format,
                                                              va_list args) {
    const int error = errno;
    log_job job;
    if (take_job(flag, filter, format, &job)) {
        char buffer[line_max];
        umbra::text_line line(buffer, sizeof buffer - 1, sizeof cut_mark - 1);  // behind it is the line feed's place
        put_time(line);
        put_source(line);
        const size_t path_at = line.size();
        line.put_escaped(job.path, job.path_length);
        line.put(": ");
        errno = error;
        const bool text_is_cut = put_text(line, format, args);
        if (text_is_cut || line.is_cut()) {
            line.mark_cut(cut_mark);
        }
        buffer[line.size()] = '\0';
        hand_out(job, buffer, line.size(), path_at);
    }
    errno = error;
}

}  // namespace

// NOLINTBEGIN(readability-non-const-parameter): the prototype is fixed
void _umbra_dt_log_filter_adv(uint64_t flag, uint64_t /*zero_1*/, uint64_t /*zero_2*/, uint64_t /*zero_3*/,
                              uint64_t /*zero_4*/, uint64_t /*zero_5*/, uint32_t *filter, const char *format, ...) {
    // NOLINTEND(readability-non-const-parameter)
    const uint32_t selected = filter == nullptr ? UMBRA_DT_ALL : __atomic_load_n(filter, __ATOMIC_RELAXED);
    if (selected == 0 || format == nullptr || !umbra::is_on(flag)) {
        return;
    }
    va_list args;
    va_start(args, format);
    log_line(flag, selected, format, args);
    va_end(args);
}

int32_t umbra_dt_log_to_stream(int32_t fd) {
    if (fd < -1 || (fd >= 0 && fcntl(fd, F_GETFD) < 0)) {
        return EBADF;
    }
    const umbra::library_lock held(umbra::guarded::flags);
    outputs.stream = fd;
    return 0;
}

void umbra_dt_log_to_syslog(int32_t priority) {
    const umbra::library_lock held(umbra::guarded::flags);
    outputs.syslog_priority = priority < 0 ? -1 : priority;
}

int32_t umbra_dt_log_to_callback(umbra_dt_line_fn callback, void *ctx) {
    constexpr timespec pause = {0, 50000};
    if (is_in_callback) {
        return EDEADLK;
    }
    for (;;) {
        {
            const umbra::library_lock held(umbra::guarded::flags);
            forget_threads_of_parent();
            outputs.callback = callbacks_running == 0 ? callback : nullptr;
            outputs.ctx = ctx;
            if (callbacks_running == 0) {
                return 0;
            }
        }
        nanosleep(&pause, nullptr);
    }
}

int32_t umbra_dt_silence(const char *text) {
    const size_t length = text == nullptr ? 0 : strnlen(text, UMBRA_DT_NAME_MAX + 1);
    if (length == 0 || length > UMBRA_DT_NAME_MAX) {
        return EINVAL;
    }
    const umbra::library_lock held(umbra::guarded::flags);
    const uint32_t place = find_silenced(text);
    if (place == silenced_max) {
        return ENOSPC;
    }
    if (place == silenced_count) {
        memcpy(silenced[silenced_count++], text, length + 1);
    }
    return 0;
}

int32_t umbra_dt_unsilence(const char *text) {
    if (text == nullptr) {
        return ENOENT;
    }
    const umbra::library_lock held(umbra::guarded::flags);
    const uint32_t place = find_silenced(text);
    if (place == silenced_count) {
        return ENOENT;
    }
    memmove(silenced[place], silenced[--silenced_count], sizeof silenced[0]);
    return 0;
}

uint64_t umbra_dt_lost_lines(void) {
    return lost_lines.load(std::memory_order_relaxed);
}

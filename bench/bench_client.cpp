// Lines a second that the import's own part takes on one core: reading, parsing, classifying and
// encoding for the database, with the writing left out.
//
// usage: bench_client LOG

#include "analytics/HitWriter.h"
#include "analytics/RowBuilder.h"
#include "common/LineReader.h"
#include "common/StatementStream.h"

#include <QFile>

#include <cstdio>
#include <ctime>

using vesk::analytics::Row;
using vesk::analytics::RowBuilder;

namespace {

double cpuSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        fputs("usage: bench_client LOG\n", stderr);
        return 2;
    }
    vesk::LineReader reader(QFile::decodeName(argv[1]));
    RowBuilder builder(QByteArray(64, '0'), 1, QStringLiteral("example.org"));
    vesk::db::Values values;
    qint64 lines = 0;
    qint64 rows = 0;
    Row row;
    const double begin = cpuSeconds();
    while (const auto line = reader.next()) {
        ++lines;
        if (builder.build(*line, row) != RowBuilder::Outcome::Row)
            continue;
        if (++rows % 200 == 0)
            values.clear();
        vesk::analytics::addRow(values, 1, row);
    }
    const double seconds = cpuSeconds() - begin;
    printf("%lld lines, %lld rows, %.0f lines a second\n", static_cast<long long>(lines),
        static_cast<long long>(rows), static_cast<double>(lines) / seconds);
    return 0;
}

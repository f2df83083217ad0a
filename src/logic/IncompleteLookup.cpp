#include "logic/IncompleteLookup.h"

#include <QDeadlineTimer>
#include <QThread>

#include <memory>
#include <mutex>

IncompleteLookup::IncompleteLookup(QObject *parent) : QObject(parent) {}

IncompleteLookup::~IncompleteLookup()
{
    if (!mReader) return;
    disconnect(mReader, nullptr, this, nullptr);
    // A stalled volume must not keep the window from closing.
    if (!mReader->wait(QDeadlineTimer(2000))) {
        mReader->setParent(nullptr);
        connect(mReader, &QThread::finished, mReader, &QObject::deleteLater);
    }
}

const CacheCommit::Completeness *IncompleteLookup::find(const QByteArray &timeFolderPath,
                                                        QByteArrayView name)
{
    if (!IncompleteItems::hasMarker(name)) return nullptr;
    const QByteArray day = IncompleteItems::dayFolderOf(timeFolderPath);
    const auto it = mDays.constFind(day);
    if (it == mDays.cend()) {
        mDays.insert(day, std::nullopt);
        mToRead.append(day);
        readNext();
        return nullptr;
    }
    if (!it->has_value()) return nullptr;
    const auto found = (*it)->constFind(IncompleteItems::keyOf(timeFolderPath, name));
    return found == (*it)->cend() ? nullptr : &*found;
}

void IncompleteLookup::clear()
{
    mDays.clear();
    mToRead.clear();
    ++mGeneration; // what the running read brings is dropped
}

void IncompleteLookup::readNext()
{
    if (mReader || mToRead.isEmpty()) return;
    const QByteArray day = mToRead.takeFirst();
    // Shared with the thread, which may outlive this object; the lock orders its writes before
    // the reads here where sanitizers can see it.
    struct Result
    {
        std::mutex lock;
        IncompleteItems::DayMap map;
    };
    auto result = std::make_shared<Result>();
    mReader = QThread::create([day, result] {
        IncompleteItems::DayMap map = IncompleteItems::ofDay(day);
        std::lock_guard lock(result->lock);
        result->map = std::move(map);
    });
    mReader->setParent(this);
    connect(mReader, &QThread::finished, this, [this, day, result, generation = mGeneration] {
        mReader->deleteLater();
        mReader = nullptr;
        const bool current = generation == mGeneration;
        if (current) {
            std::lock_guard lock(result->lock);
            mDays.insert(day, std::move(result->map));
        }
        readNext();
        if (current) emit loaded();
    });
    mReader->start(QThread::LowPriority);
}

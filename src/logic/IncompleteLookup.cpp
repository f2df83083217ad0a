#include "logic/IncompleteLookup.h"

IncompleteLookup::IncompleteLookup(QObject *parent)
    : QObject(parent), mMailbox(std::make_shared<Mailbox>(this))
{
}

IncompleteLookup::~IncompleteLookup()
{
    // A stalled volume must not keep the window from closing: what the read finds is dropped.
    mMailbox->detach();
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
    if (mReading || mToRead.isEmpty()) return;
    const QByteArray day = mToRead.takeFirst();
    mReading = true;
    Jobs::start([this, day, generation = mGeneration, mailbox = mMailbox] {
        mailbox->post([this, day, generation, map = IncompleteItems::ofDay(day)]() mutable {
            mReading = false;
            const bool current = generation == mGeneration;
            if (current) mDays.insert(day, std::move(map));
            readNext();
            if (current) emit loaded();
        });
    });
}

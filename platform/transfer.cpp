#include "platform/transfer.h"

#include "platform/error.h"

namespace platform {

using fault::Operation;

namespace {

bool answer(std::uint32_t error)
{
    if (error != error_none) set_last_error(error);
    return error == error_none;
}

}  // namespace

std::uint32_t Stream::judge(bool, std::uint32_t error, std::size_t &) const { return error; }

bool Transfer::State::begin(const std::shared_ptr<Stream> &on, Operation what, void *bytes, std::size_t n)
{
    look();
    if (under_way()) return answer(error_busy);
    forget_signal();
    moved = 0;
    error = on->closed() ? error_invalid_handle : error_none;
    if (error != error_none) return answer(error);
    operation = what;
    stream = on;
    wanted = n;
    admitted = fault::admit(what, n);
    const std::uint32_t started = admitted > 0 ? start(bytes) : std::uint32_t{error_none};
    if (started == error_io_pending) return answer(started);
    end(started);
    return answer(error);
}

void Transfer::State::end(std::uint32_t with)
{
    error = stream->judge(operation == Operation::read, with, moved);
    const bool at_the_limit = operation == Operation::write || moved == 0;  // a read with some bytes has succeeded
    if (error == error_none && at_the_limit && admitted < wanted && !fault::fail(operation)) error = last_error();
    // close() may have caused the end or the failure.
    const bool in_vain = error != error_none || (moved == 0 && wanted > 0);
    if (in_vain && stream->closed()) error = error_operation_aborted;
    fault::give_back(operation, admitted - moved);
    stream.reset();
}

bool Transfer::read(const std::shared_ptr<Stream> &stream, void *buffer, std::size_t n)
{
    const std::lock_guard guard(*state_);
    return state_->begin(stream, Operation::read, buffer, n);
}

bool Transfer::write(const std::shared_ptr<Stream> &stream, const void *buffer, std::size_t n)
{
    const std::lock_guard guard(*state_);
    return state_->begin(stream, Operation::write, const_cast<void *>(buffer), n);  // a write only reads the buffer
}

bool Transfer::pending() const
{
    const std::lock_guard guard(*state_);
    state_->look();
    return state_->under_way();
}

bool Transfer::result(std::size_t &moved)
{
    const std::lock_guard guard(*state_);
    state_->look();
    moved = state_->moved;
    return answer(state_->under_way() ? std::uint32_t{error_io_incomplete} : state_->error);
}

void Transfer::cancel()
{
    const std::lock_guard guard(*state_);
    if (state_->under_way()) state_->cancel();
}

bool Transfer::take()
{
    const std::lock_guard guard(*state_);
    return state_->take();
}

}  // namespace platform

#pragma once

#include <string>

#include "bmc/board.h"
#include "qapp/zelkor_object.h"

namespace qapp {

/// An application's own object for a board, made by ZelkorApplication::CreateBoard.
class ZelkorBoard : public ZelkorObject {
public:
    /// @param board not null; owned by the board pool
    explicit ZelkorBoard(const bmc::Board* board) : m_board(board) {}

    const bmc::Board* GetBoard() const noexcept { return m_board; }
    std::string OnGetName() const override { return m_board->GetShortName(); }

private:
    const bmc::Board* m_board;
};

}  // namespace qapp

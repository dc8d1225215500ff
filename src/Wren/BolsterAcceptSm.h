// The process's one listening endpoint of the doorbell: a path socket in the directory "sockets"
// below the base directory, on which readers ask for a table by its number.
#pragma once

#include "Dunlin/Types.h"
#include "SharedMem/FileUtil.h"

#include <functional>
#include <map>
#include <string>

namespace Wren {

struct Hello;

class BolsterAcceptSm {
public:
    // Takes over a connection whose Hello asks for a table; false refuses it.
    using Acceptor = std::function<void(Mem::Fd connection, Hello const& hello)>;

    // The endpoint; made at first use, listening from the first table that is offered on, and never
    // destroyed: a writer may be a static object. Its socket is removed when the process ends.
    static BolsterAcceptSm& bolsterAcceptSm();
    BolsterAcceptSm(BolsterAcceptSm const&) = delete;
    BolsterAcceptSm& operator=(BolsterAcceptSm const&) = delete;

    // The name under which readers find it, "<process>-<pid>".
    std::string const& socketName();

    // Offers a table whose files have the given permission bits: each class of users that may read
    // them may connect from now on. Raises InvalidInitializeException if the socket cannot be made.
    void tableAdd(U32 tableId, U32 filesMode, Acceptor acceptor);
    void tableDel(U32 tableId);
    // Lets in who waits, as the event loop would. Calls acceptors, and nothing else of the process.
    void look();

private:
    BolsterAcceptSm();
    void ensureListening();
    bool permit() const;
    void removeSocket() const;
    void leaveParents();
    void stopListening(bool removePath);
    void acceptAll();
    void greet(int fd);

    std::string socketName_;
    std::string path_;
    U32 generation_ = ~0U;
    U32 filesMode_ = 0; // of all tables that were offered
    Mem::Fd listening_;
    std::map<U32, Acceptor> tables_;
    std::map<int, Mem::Fd> strangers_; // connected, no Hello yet
};

} // namespace Wren

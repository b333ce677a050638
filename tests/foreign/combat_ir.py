"""Back-end of omniidl: writes what an IDL file declares as the type repository of Combat, the ORB for Tcl.

    omniidl -p FOLDER -b combat_ir FILE.idl

The result is a Tcl script on standard output that calls `combat::ir add` with one list: an item for each declaration,
{kind {repository-id name version} ...}. Only what the file declares itself; value types, attributes, arrays and
fixed-point numbers are refused, since no interface of ours has any."""

from omniidl import idlast, idltype, idlvisitor

BASE_TYPES = {
    idltype.tk_void: "void", idltype.tk_short: "short", idltype.tk_long: "long", idltype.tk_ushort: "unsigned short",
    idltype.tk_ulong: "unsigned long", idltype.tk_float: "float", idltype.tk_double: "double",
    idltype.tk_boolean: "boolean", idltype.tk_char: "char", idltype.tk_octet: "octet", idltype.tk_any: "any",
    idltype.tk_longlong: "long long", idltype.tk_ulonglong: "unsigned long long",
}


def tcl_list(items):
    """A Tcl list. The texts in it are names, numbers and types: nothing of them needs more than braces."""
    return " ".join(item if item and not set(item) & set(" {}") else "{" + item + "}" for item in items)


def type_name(kind):
    """What the repository calls a type."""
    if isinstance(kind, idltype.Base):
        return BASE_TYPES[kind.kind()]
    if isinstance(kind, idltype.String):
        return tcl_list(["string", str(kind.bound())]) if kind.bound() else "string"
    if isinstance(kind, idltype.Sequence):
        bound = [str(kind.bound())] if kind.bound() else []
        return tcl_list(["sequence", type_name(kind.seqType())] + bound)
    if isinstance(kind, idltype.Declared):
        return kind.decl().repoId()
    raise ValueError(f"no type of this kind is known here: {kind}")


def identity(declaration):
    """{repository-id name version} of a declaration."""
    return tcl_list([declaration.repoId(), declaration.identifier(), declaration.repoId().rpartition(":")[2]])


def members(declaration):
    """The members of a structure or an exception."""
    return tcl_list([tcl_list([declarator.identifier(), type_name(member.memberType())])
                     for member in declaration.members() for declarator in member.declarators()])


class Items(idlvisitor.AstVisitor):
    """Collects the item of each declaration that it visits."""

    def __init__(self):
        self.items = []

    def visit_inside(self, declarations):
        inside = Items()
        for declaration in declarations:
            declaration.accept(inside)
        return tcl_list(inside.items)

    def add(self, kind, declaration, *rest):
        self.items.append(tcl_list([kind, identity(declaration), *rest]))

    def visitAST(self, node):
        for declaration in node.declarations():
            if declaration.mainFile():
                declaration.accept(self)

    def visitModule(self, node):
        self.add("module", node, self.visit_inside(node.definitions()))

    def visitInterface(self, node):
        self.add("interface", node, tcl_list([base.repoId() for base in node.inherits()]),
                 self.visit_inside(node.contents()))

    def visitConst(self, node):
        self.add("const", node, type_name(node.constType()), str(node.value()))

    def visitTypedef(self, node):
        for declarator in node.declarators():
            if declarator.sizes():
                raise ValueError(f"{declarator.identifier()}: arrays are not known here")
            self.add("typedef", declarator, type_name(node.aliasType()))

    def visitStruct(self, node):
        self.add("struct", node, members(node), "")

    def visitException(self, node):
        self.add("exception", node, members(node), "")

    def visitUnion(self, node):
        cases = []
        for case in node.cases():
            for label in case.labels():
                value = "(default)" if label.default() else str(label.value())
                cases.append(tcl_list([value, case.declarator().identifier(), type_name(case.caseType())]))
        self.add("union", node, type_name(node.switchType()), tcl_list(cases), "")

    def visitOperation(self, node):
        parameters = [tcl_list([parameter.dirtext(), parameter.identifier(), type_name(parameter.paramType())])
                      for parameter in node.parameters()]
        raises = tcl_list([exception.repoId() for exception in node.raises()])
        oneway = ["oneway"] if node.oneway() else []
        self.add("operation", node, type_name(node.returnType()), tcl_list(parameters), raises, *oneway)

    def refuse(self, node):
        raise ValueError(f"{node.file()}:{node.line()}: a declaration of this kind is not known here")

    visitForward = visitEnum = visitAttribute = visitNative = visitValue = visitValueBox = visitValueAbs = refuse


def run(tree, _arguments):
    """Called by omniidl with the tree of the parsed file."""
    assert isinstance(tree, idlast.AST)
    collected = Items()
    tree.accept(collected)
    print("package require combat\n\ncombat::ir add {" + tcl_list(collected.items) + "}")

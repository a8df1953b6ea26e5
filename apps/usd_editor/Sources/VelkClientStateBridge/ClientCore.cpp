// The client core lands with its own change; this unit keeps the library target buildable.
namespace orvan::client {}

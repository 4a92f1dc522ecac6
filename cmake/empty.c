/* The shared library is made of the bridge archive; this unit only gives the target a source. */
typedef int quorl_shared_library_unit;

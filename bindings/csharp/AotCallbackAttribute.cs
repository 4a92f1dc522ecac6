// The attribute that marks a static method as a callback native code may call, so an ahead-of-time
// compiler generates the reverse wrapper for it. The engine ships its own AOT.MonoPInvokeCallbackAttribute;
// outside the engine (plain Mono, the tests) this stand-in with the same full name takes its place.
#if !UNITY_5_3_OR_NEWER
using System;

namespace AOT
{
    [AttributeUsage(AttributeTargets.Method)]
    public sealed class MonoPInvokeCallbackAttribute : Attribute
    {
        public MonoPInvokeCallbackAttribute(Type delegateType) { DelegateType = delegateType; }

        public Type DelegateType { get; private set; }
    }
}
#endif

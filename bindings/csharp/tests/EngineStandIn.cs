// A compile-only stand-in for the few engine types that the package's Runtime and Sample use, so that
// mcs can compile them as the engine does (with UNITY_5_3_OR_NEWER defined, which leaves out
// AotCallbackAttribute.cs in favour of the engine's own AOT.MonoPInvokeCallbackAttribute). Nothing here
// runs: members are declared with the engine's public signatures and have empty bodies.
using System;

namespace AOT
{
    [AttributeUsage(AttributeTargets.Method)]
    public class MonoPInvokeCallbackAttribute : Attribute
    {
        public MonoPInvokeCallbackAttribute(Type type) { }
    }
}

namespace UnityEngine
{
    public class Object
    {
        public string name { get; set; }
        public int GetInstanceID() { return 0; }
    }

    public class Component : Object { }

    public class Behaviour : Component
    {
        public bool enabled { get; set; }
    }

    public class MonoBehaviour : Behaviour { }

    public static class Debug
    {
        public static void Log(object message) { }
        public static void LogWarning(object message) { }
        public static void LogException(Exception exception) { }
    }

    public static class Graphics
    {
        public static void ExecuteCommandBuffer(Rendering.CommandBuffer buffer) { }
    }

    [AttributeUsage(AttributeTargets.Field)]
    public class TooltipAttribute : Attribute
    {
        public TooltipAttribute(string tooltip) { }
    }
}

namespace UnityEngine.Rendering
{
    public class CommandBuffer : IDisposable
    {
        public string name { get; set; }
        public void Clear() { }
        public void IssuePluginEvent(IntPtr callback, int eventID) { }
        public void Release() { }
        public void Dispose() { }
    }
}

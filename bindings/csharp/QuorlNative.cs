// Raw P/Invoke declarations of the 35 exports of libQuorlBridge, one to one with the native header
// (bridge/exports.h). Prefer the safe layer in QuorlBridge.cs: these functions do no argument checks, and
// a null text or a bad pointer here raises a native exception or a fault that ends the game process.
//
// Marshalling rules that every declaration follows, because the engine's ahead-of-time runtime is
// stricter than Mono:
// - a native bool is one byte: every bool return, parameter and field carries UnmanagedType.I1;
// - texts that the library owns (QuorlError_ToString, the log view's message) come back as IntPtr and are
//   copied, never declared as string, which would make the marshaller free library memory;
// - texts out of the library go into a caller's byte buffer;
// - every callback type is cdecl, and only static methods marked [AOT.MonoPInvokeCallback] may be handed
//   to native code, kept alive for as long as native code may call them.
using System;
using System.Runtime.InteropServices;

namespace Quorl.Native
{
    /// <summary>Handed by constant pointer to frame-context render work; valid only during that call.</summary>
    [StructLayout(LayoutKind.Sequential)]
    public struct FrameContext
    {
        public uint structSize; // always 24
        public uint reserved0;
        public ulong reserved1;
        public ulong reserved2;
    }

    /// <summary>The library's one view of the oldest log buffer entry (see LogBuffer_Get).</summary>
    [StructLayout(LayoutKind.Sequential)]
    public struct LogBufferView
    {
        public int level;
        public IntPtr message; // owned by the entry: copy it before LogBuffer_Pop
    }

    /// <summary>The head of a playback library's representation record: the two texts the policy reads.</summary>
    [StructLayout(LayoutKind.Sequential)]
    public struct RepresentationDescriptor
    {
        public IntPtr mediaType;
        public IntPtr selectionKey;
    }

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void ShutdownCallback();

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void RenderFn();

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void RenderFnI(int a);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void RenderFnIII(int a, int b, int c);

    /// <summary>`context` points to a FrameContext that lives only during the call.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void RenderFnFrameContextI(int a, IntPtr context);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void RenderFnFrameContextIII(int a, int b, int c, IntPtr context);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void OnAssetInitialisedCallback(int value, IntPtr pointer);

    /// <summary>`descriptor` points to a RepresentationDescriptor owned by the playback library.</summary>
    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    [return: MarshalAs(UnmanagedType.I1)]
    public delegate bool OnAssetSelectRepresentationCallback(IntPtr descriptor, int value0, IntPtr pointer0,
                                                             int value1, IntPtr pointer1);

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void OnAssetRepresentationDataReceivedCallback(IntPtr pointer0, IntPtr pointer1,
                                                                   IntPtr pointer2, int value, IntPtr pointer3,
                                                                   float amount);

    public static class QuorlNative
    {
        // The engine maps this to Plugins/x86_64/libQuorlBridge.so; Mono finds libQuorlBridge.so on the
        // loader's search path.
        public const string Library = "QuorlBridge";

        // Lifecycle.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Lock();

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Unlock();

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern IntPtr GetUnityRenderDevice();

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void SetFunc_InterfaceShutdown(ShutdownCallback callback);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Trigger_InterfaceShutdown();

        // Render events.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int QueueGLEvent(RenderFn fn);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int QueueGLEventI(RenderFnI fn, int a);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int QueueGLEventIII(RenderFnIII fn, int a, int b, int c);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int QueueGLEventPrepFrameContextI(RenderFnFrameContextI fn, int a, IntPtr x, IntPtr y);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int QueueGLEventPrepFrameContextIII(RenderFnFrameContextIII fn, int a, int b, int c,
                                                                 IntPtr x, IntPtr y);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void UnityRenderEvent(int eventId);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern IntPtr UnityRenderEventFunc();

        // Scene objects.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Scene_Objects_Add(int handle, [MarshalAs(UnmanagedType.LPStr)] string name,
                                                    [MarshalAs(UnmanagedType.LPStr)] string type);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Scene_Objects_Remove(int handle);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int Scene_Objects_GetCount();

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int Scene_Objects_GetHandleAtIndex(int index);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int Scene_Objects_GetHandleFromName([MarshalAs(UnmanagedType.LPStr)] string name);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool Scene_Objects_GetNameFromHandle(int handle, [Out] byte[] buffer, int bufferSize);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool Scene_Objects_GetTypeFromHandle(int handle, [Out] byte[] buffer, int bufferSize);

        // Named integers.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Map_Add([MarshalAs(UnmanagedType.LPStr)] string name, int value);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Map_Remove([MarshalAs(UnmanagedType.LPStr)] string name);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool Map_Contains([MarshalAs(UnmanagedType.LPStr)] string name);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern int Map_GetValue([MarshalAs(UnmanagedType.LPStr)] string name);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Map_SetValue([MarshalAs(UnmanagedType.LPStr)] string name, int value);

        // Log buffer.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void LogBuffer_Add(int level, [MarshalAs(UnmanagedType.LPStr)] string text);

        /// <summary>A pointer to the library's LogBufferView, or zero when the buffer is empty.</summary>
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern IntPtr LogBuffer_Get();

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void LogBuffer_Pop();

        // Asset relay.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Callback_Set_OnAssetInitialised(OnAssetInitialisedCallback callback);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Callback_Set_OnAssetSelectRepresentation(OnAssetSelectRepresentationCallback callback);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void Callback_Set_OnAssetRepresentationDataReceived(
            OnAssetRepresentationDataReceivedCallback callback);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void StaticHandler_OnAssetInitialised(int value, IntPtr pointer);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        [return: MarshalAs(UnmanagedType.I1)]
        public static extern bool StaticHandler_OnAssetSelectRepresentation(ref RepresentationDescriptor descriptor,
                                                                            int value0, IntPtr pointer0, int value1,
                                                                            IntPtr pointer1);

        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void StaticHandler_OnAssetRepresentationDataReceived(IntPtr pointer0, IntPtr pointer1,
                                                                                  IntPtr pointer2, int value,
                                                                                  IntPtr pointer3, float amount);

        /// <summary>A static text of the library; copy it, never free it.</summary>
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern IntPtr QuorlError_ToString(int code);

        // Registration.
        [DllImport(Library, CallingConvention = CallingConvention.Cdecl)]
        public static extern void RegisterUnityPlugin(int first, int second, int third,
                                                      [MarshalAs(UnmanagedType.LPStr)] string text);
    }
}

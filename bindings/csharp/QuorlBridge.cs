// The safe layer over libQuorlBridge for game scripts. Every function checks its arguments before the
// native call, because a native exception (a null text, for one) cannot be caught on the managed side:
// it ends the game process. Texts come back as strings, delegates stay alive for as long as native code
// may call them, and exceptions thrown by managed callbacks are caught at the boundary and reported
// through CallbackFailed instead of unwinding through native frames.
//
// Threads: every function may be called from any thread. Render work queued here runs on the thread that
// fires its id (the engine's render thread, through RenderEventFunc). Asset callbacks run on the playback
// libraries' threads with the bridge lock held, so they must be quick; they may call back into this
// class. Use Lock() to make a run of calls one step for the other threads.
//
// The library's state lives as long as it stays loaded, and the editor keeps a plug-in loaded across
// script reloads: tables, the selection key and registered callbacks persist. After a reload, register
// the callbacks again (the ones from before point into the unloaded domain).
using System;
using System.Collections.Generic;
using System.Runtime.InteropServices;
using System.Text;
using AOT;
using Quorl.Native;

namespace Quorl
{
    /// <summary>One log buffer entry, copied out of the library.</summary>
    public struct LogEntry
    {
        public LogEntry(int level, string message)
        {
            Level = level;
            Message = message;
        }

        public int Level { get; private set; }
        public string Message { get; private set; }
    }

    /// <summary>A representation offered for selection, with the texts the policy reads.</summary>
    public struct Representation
    {
        public string MediaType;
        public string SelectionKey;
        public IntPtr Descriptor; // the playback library's record, valid during the callback only
        public int Value0;
        public IntPtr Pointer0;
        public int Value1;
        public IntPtr Pointer1;
    }

    /// <summary>The arguments of a data-received event, passed on untouched.</summary>
    public struct RepresentationData
    {
        public IntPtr Pointer0;
        public IntPtr Pointer1;
        public IntPtr Pointer2;
        public int Value;
        public IntPtr Pointer3;
        public float Amount;
    }

    /// <summary>Holds the bridge lock until disposed: <c>using (QuorlBridge.Lock()) { ... }</c>.</summary>
    public struct BridgeLock : IDisposable
    {
        public void Dispose()
        {
            QuorlNative.Unlock();
        }
    }

    public static class QuorlBridge
    {
        /// <summary>Render event ids start here: the first slot's id.</summary>
        public const int RenderEventIdBase = 16000;

        // Texts read through a caller's buffer are retried with a larger buffer up to this size.
        private const int MaxTextBytes = 1 << 20;

        private static readonly object Gate = new object();

        /// <summary>
        /// Receives exceptions thrown by managed callbacks, which must not reach native code. Without a
        /// handler they are written to standard error.
        /// </summary>
        public static event Action<Exception> CallbackFailed;

        // ---- Lifecycle -----------------------------------------------------------------------------

        /// <summary>Takes the bridge lock (recursive); dispose the result to release it.</summary>
        public static BridgeLock Lock()
        {
            QuorlNative.Lock();
            return new BridgeLock();
        }

        /// <summary>Always zero: the library reports no render device.</summary>
        public static IntPtr RenderDevice
        {
            get { return QuorlNative.GetUnityRenderDevice(); }
        }

        private static volatile Action shutdownCallback;
        private static readonly ShutdownCallback ShutdownTrampoline = OnInterfaceShutdown;

        /// <summary>Sets the notice of a completed interface shutdown; null clears it.</summary>
        public static void SetInterfaceShutdownCallback(Action callback)
        {
            Install(() => shutdownCallback = callback,
                    () => QuorlNative.SetFunc_InterfaceShutdown(
                        callback != null ? ShutdownTrampoline : null),
                    callback != null);
        }

        /// <summary>
        /// Requests the interface shutdown: the notice comes at once with no scene objects, or when the
        /// last one is removed.
        /// </summary>
        public static void TriggerInterfaceShutdown()
        {
            QuorlNative.Trigger_InterfaceShutdown();
        }

        [MonoPInvokeCallback(typeof(ShutdownCallback))]
        private static void OnInterfaceShutdown()
        {
            Action callback = shutdownCallback;
            if (callback == null) return;
            try
            {
                callback();
            }
            catch (Exception e)
            {
                Report(e);
            }
        }

        // ---- Render events -------------------------------------------------------------------------

        /// <summary>The address to give the engine's plug-in event call, e.g. GL.IssuePluginEvent.</summary>
        public static IntPtr RenderEventFunc
        {
            get { return QuorlNative.UnityRenderEventFunc(); }
        }

        /// <summary>Fires an id on the calling thread, as the engine's render thread does.</summary>
        public static void FireRenderEvent(int eventId)
        {
            QuorlNative.UnityRenderEvent(eventId);
        }

        private static readonly Dictionary<int, Delegate> PendingWork = new Dictionary<int, Delegate>();
        private static int nextWorkKey;
        private static readonly RenderFnI RunPendingTrampoline = RunPending;
        private static readonly RenderFnFrameContextI RunPendingWithContextTrampoline = RunPendingWithContext;

        /// <summary>
        /// Queues managed work to run once on the render thread; returns the id to hand to the engine.
        /// The work is kept alive until it runs. An id that never fires keeps it for the session.
        /// </summary>
        public static int QueueRenderWork(Action work)
        {
            if (work == null) throw new ArgumentNullException("work");
            int key = Park(work);
            try
            {
                return QuorlNative.QueueGLEventI(RunPendingTrampoline, key);
            }
            catch
            {
                Unpark(key);
                throw;
            }
        }

        /// <summary>As QueueRenderWork(Action), with the frame context the library prepares for the call.</summary>
        public static int QueueRenderWork(Action<FrameContext> work)
        {
            if (work == null) throw new ArgumentNullException("work");
            int key = Park(work);
            try
            {
                return QuorlNative.QueueGLEventPrepFrameContextI(RunPendingWithContextTrampoline, key, IntPtr.Zero,
                                                                 IntPtr.Zero);
            }
            catch
            {
                Unpark(key);
                throw;
            }
        }

        /// <summary>Queues a static callback directly, without the managed table. See RequireAotCallback.</summary>
        public static int QueueRenderEvent(RenderFn fn)
        {
            return QuorlNative.QueueGLEvent(Keep(fn, "fn"));
        }

        public static int QueueRenderEvent(RenderFnI fn, int a)
        {
            return QuorlNative.QueueGLEventI(Keep(fn, "fn"), a);
        }

        public static int QueueRenderEvent(RenderFnIII fn, int a, int b, int c)
        {
            return QuorlNative.QueueGLEventIII(Keep(fn, "fn"), a, b, c);
        }

        /// <summary>x and y are carried along unread by the library.</summary>
        public static int QueueRenderEvent(RenderFnFrameContextI fn, int a, IntPtr x, IntPtr y)
        {
            return QuorlNative.QueueGLEventPrepFrameContextI(Keep(fn, "fn"), a, x, y);
        }

        public static int QueueRenderEvent(RenderFnFrameContextIII fn, int a, int b, int c, IntPtr x, IntPtr y)
        {
            return QuorlNative.QueueGLEventPrepFrameContextIII(Keep(fn, "fn"), a, b, c, x, y);
        }

        /// <summary>Reads the frame context a frame-context callback received.</summary>
        public static FrameContext ReadFrameContext(IntPtr context)
        {
            if (context == IntPtr.Zero) throw new ArgumentNullException("context");
            return (FrameContext)Marshal.PtrToStructure(context, typeof(FrameContext));
        }

        private static int Park(Delegate work)
        {
            lock (PendingWork)
            {
                do
                {
                    nextWorkKey = nextWorkKey == int.MaxValue ? 0 : nextWorkKey + 1;
                } while (PendingWork.ContainsKey(nextWorkKey));
                PendingWork.Add(nextWorkKey, work);
                return nextWorkKey;
            }
        }

        private static Delegate Unpark(int key)
        {
            lock (PendingWork)
            {
                Delegate work;
                if (!PendingWork.TryGetValue(key, out work)) return null;
                PendingWork.Remove(key);
                return work;
            }
        }

        [MonoPInvokeCallback(typeof(RenderFnI))]
        private static void RunPending(int key)
        {
            Action work = Unpark(key) as Action;
            if (work == null) return;
            try
            {
                work();
            }
            catch (Exception e)
            {
                Report(e);
            }
        }

        [MonoPInvokeCallback(typeof(RenderFnFrameContextI))]
        private static void RunPendingWithContext(int key, IntPtr context)
        {
            Action<FrameContext> work = Unpark(key) as Action<FrameContext>;
            if (work == null) return;
            try
            {
                work(ReadFrameContext(context));
            }
            catch (Exception e)
            {
                Report(e);
            }
        }

        // One delegate per static method and delegate type, kept for the session, so native code never
        // calls a collected thunk and a script that queues every frame does not grow the table.
        private static readonly Dictionary<KeyValuePair<Type, System.Reflection.MethodInfo>, Delegate> KeptCallbacks =
            new Dictionary<KeyValuePair<Type, System.Reflection.MethodInfo>, Delegate>();

        private static T Keep<T>(T callback, string parameter) where T : class
        {
            Delegate given = callback as Delegate;
            RequireAotCallback(given, parameter);
            KeyValuePair<Type, System.Reflection.MethodInfo> key =
                new KeyValuePair<Type, System.Reflection.MethodInfo>(given.GetType(), given.Method);
            lock (KeptCallbacks)
            {
                Delegate kept;
                if (!KeptCallbacks.TryGetValue(key, out kept))
                {
                    kept = given;
                    KeptCallbacks.Add(key, kept);
                }
                return (T)(object)kept;
            }
        }

        /// <summary>
        /// Refuses what the engine's ahead-of-time runtime cannot call from native code: a null delegate,
        /// an instance method or a lambda that captures, and a static method without
        /// [AOT.MonoPInvokeCallback]. Mono would accept the latter two, and the shipped game would crash.
        /// </summary>
        public static void RequireAotCallback(Delegate callback, string parameter)
        {
            if (callback == null) throw new ArgumentNullException(parameter);
            if (callback.GetInvocationList().Length != 1 || !callback.Method.IsStatic || callback.Target != null)
            {
                throw new ArgumentException("native callbacks must be one static method", parameter);
            }
            if (!callback.Method.IsDefined(typeof(MonoPInvokeCallbackAttribute), false))
            {
                throw new ArgumentException(
                    "native callbacks must be marked [AOT.MonoPInvokeCallback(typeof(" + callback.GetType().Name + "))]",
                    parameter);
            }
        }

        // ---- Scene objects -------------------------------------------------------------------------

        public static void AddSceneObject(int handle, string name, string type)
        {
            if (name == null) throw new ArgumentNullException("name");
            if (type == null) throw new ArgumentNullException("type");
            QuorlNative.Scene_Objects_Add(handle, name, type);
        }

        /// <summary>Removes every object with the handle; the last removal may complete a shutdown.</summary>
        public static void RemoveSceneObject(int handle)
        {
            QuorlNative.Scene_Objects_Remove(handle);
        }

        public static int SceneObjectCount
        {
            get { return QuorlNative.Scene_Objects_GetCount(); }
        }

        /// <summary>All handles in order of insertion, read as one step.</summary>
        public static int[] SceneObjectHandles()
        {
            using (Lock())
            {
                // With no objects the native index is not checked at all: never ask for one.
                int count = QuorlNative.Scene_Objects_GetCount();
                int[] handles = new int[Math.Max(count, 0)];
                for (int i = 0; i < handles.Length; ++i) handles[i] = QuorlNative.Scene_Objects_GetHandleAtIndex(i);
                return handles;
            }
        }

        /// <summary>The handle of the first object with this name, or 0 (also a valid handle).</summary>
        public static int FindSceneObject(string name)
        {
            if (name == null) throw new ArgumentNullException("name");
            return QuorlNative.Scene_Objects_GetHandleFromName(name);
        }

        /// <summary>The object's name, or null for an unknown handle.</summary>
        public static string SceneObjectName(int handle)
        {
            return ReadText(handle, false);
        }

        /// <summary>The object's type text, or null for an unknown handle.</summary>
        public static string SceneObjectType(int handle)
        {
            return ReadText(handle, true);
        }

        private static string ReadText(int handle, bool type)
        {
            using (Lock())
            {
                for (int size = 64;; size *= 4)
                {
                    // 0xFF never occurs in UTF-8: a buffer still full of it was not written, so the
                    // handle is unknown; a written one ends in 0 whether or not the text was cut.
                    byte[] buffer = new byte[size];
                    for (int i = 0; i < size; ++i) buffer[i] = 0xFF;
                    bool whole = type ? QuorlNative.Scene_Objects_GetTypeFromHandle(handle, buffer, size)
                                      : QuorlNative.Scene_Objects_GetNameFromHandle(handle, buffer, size);
                    if (!whole && buffer[size - 1] != 0) return null;
                    if (whole || size >= MaxTextBytes) return DecodeUntilZero(buffer);
                }
            }
        }

        // ---- Named integers ------------------------------------------------------------------------

        /// <summary>Adds the name with the value; an existing name keeps its old value.</summary>
        public static void MapAdd(string name, int value)
        {
            QuorlNative.Map_Add(RequireName(name), value);
        }

        public static void MapRemove(string name)
        {
            QuorlNative.Map_Remove(RequireName(name));
        }

        public static bool MapContains(string name)
        {
            return QuorlNative.Map_Contains(RequireName(name));
        }

        /// <summary>The value, or 0 for an absent name (use TryGetMapValue to tell them apart).</summary>
        public static int MapGetValue(string name)
        {
            return QuorlNative.Map_GetValue(RequireName(name));
        }

        /// <summary>Overwrites the value of a present name; an absent name stays absent.</summary>
        public static void MapSetValue(string name, int value)
        {
            QuorlNative.Map_SetValue(RequireName(name), value);
        }

        public static bool TryGetMapValue(string name, out int value)
        {
            RequireName(name);
            using (Lock())
            {
                bool present = QuorlNative.Map_Contains(name);
                value = present ? QuorlNative.Map_GetValue(name) : 0;
                return present;
            }
        }

        private static string RequireName(string name)
        {
            if (name == null) throw new ArgumentNullException("name");
            return name;
        }

        // ---- Log buffer ----------------------------------------------------------------------------

        public static void AddLog(int level, string text)
        {
            if (text == null) throw new ArgumentNullException("text");
            QuorlNative.LogBuffer_Add(level, text);
        }

        /// <summary>Takes the oldest entry: reads the view, copies the text and pops, as one step.</summary>
        public static bool TryTakeLog(out LogEntry entry)
        {
            using (Lock())
            {
                IntPtr view = QuorlNative.LogBuffer_Get();
                if (view == IntPtr.Zero)
                {
                    entry = default(LogEntry);
                    return false;
                }
                LogBufferView read = (LogBufferView)Marshal.PtrToStructure(view, typeof(LogBufferView));
                entry = new LogEntry(read.level, PtrToUtf8(read.message));
                QuorlNative.LogBuffer_Pop();
                return true;
            }
        }

        // ---- Asset relay ---------------------------------------------------------------------------

        private static volatile Action<int, IntPtr> assetInitialised;
        private static volatile Func<Representation, bool> selectRepresentation;
        private static volatile Action<RepresentationData> dataReceived;
        private static readonly OnAssetInitialisedCallback AssetInitialisedTrampoline = OnAssetInitialised;
        private static readonly OnAssetSelectRepresentationCallback SelectRepresentationTrampoline =
            OnAssetSelectRepresentation;
        private static readonly OnAssetRepresentationDataReceivedCallback DataReceivedTrampoline =
            OnAssetRepresentationDataReceived;

        /// <summary>Sets the callback for asset initialisation; null clears it (events are then lost).</summary>
        public static void SetOnAssetInitialised(Action<int, IntPtr> callback)
        {
            Install(() => assetInitialised = callback,
                    () => QuorlNative.Callback_Set_OnAssetInitialised(
                        callback != null ? AssetInitialisedTrampoline : null),
                    callback != null);
        }

        /// <summary>
        /// Sets the callback that decides which representation is taken; null hands the decision back to
        /// the library's built-in policy. A callback that throws refuses the representation.
        /// </summary>
        public static void SetOnAssetSelectRepresentation(Func<Representation, bool> callback)
        {
            Install(() => selectRepresentation = callback,
                    () => QuorlNative.Callback_Set_OnAssetSelectRepresentation(
                        callback != null ? SelectRepresentationTrampoline : null),
                    callback != null);
        }

        public static void SetOnAssetRepresentationDataReceived(Action<RepresentationData> callback)
        {
            Install(() => dataReceived = callback,
                    () => QuorlNative.Callback_Set_OnAssetRepresentationDataReceived(
                        callback != null ? DataReceivedTrampoline : null),
                    callback != null);
        }

        [MonoPInvokeCallback(typeof(OnAssetInitialisedCallback))]
        private static void OnAssetInitialised(int value, IntPtr pointer)
        {
            Action<int, IntPtr> callback = assetInitialised;
            if (callback == null) return;
            try
            {
                callback(value, pointer);
            }
            catch (Exception e)
            {
                Report(e);
            }
        }

        [MonoPInvokeCallback(typeof(OnAssetSelectRepresentationCallback))]
        private static bool OnAssetSelectRepresentation(IntPtr descriptor, int value0, IntPtr pointer0, int value1,
                                                        IntPtr pointer1)
        {
            Func<Representation, bool> callback = selectRepresentation;
            if (callback == null) return false;
            try
            {
                RepresentationDescriptor head =
                    (RepresentationDescriptor)Marshal.PtrToStructure(descriptor, typeof(RepresentationDescriptor));
                Representation offer = new Representation
                {
                    MediaType = PtrToUtf8(head.mediaType),
                    SelectionKey = PtrToUtf8(head.selectionKey),
                    Descriptor = descriptor,
                    Value0 = value0,
                    Pointer0 = pointer0,
                    Value1 = value1,
                    Pointer1 = pointer1,
                };
                return callback(offer);
            }
            catch (Exception e)
            {
                Report(e);
                return false;
            }
        }

        [MonoPInvokeCallback(typeof(OnAssetRepresentationDataReceivedCallback))]
        private static void OnAssetRepresentationDataReceived(IntPtr pointer0, IntPtr pointer1, IntPtr pointer2,
                                                              int value, IntPtr pointer3, float amount)
        {
            Action<RepresentationData> callback = dataReceived;
            if (callback == null) return;
            try
            {
                callback(new RepresentationData
                {
                    Pointer0 = pointer0,
                    Pointer1 = pointer1,
                    Pointer2 = pointer2,
                    Value = value,
                    Pointer3 = pointer3,
                    Amount = amount,
                });
            }
            catch (Exception e)
            {
                Report(e);
            }
        }

        /// <summary>Relays an initialisation as a playback library would.</summary>
        public static void RelayAssetInitialised(int value, IntPtr pointer)
        {
            QuorlNative.StaticHandler_OnAssetInitialised(value, pointer);
        }

        /// <summary>
        /// Asks for a decision on a representation as a playback library would: the host's callback if one
        /// is set, otherwise the built-in policy.
        /// </summary>
        public static bool RelaySelectRepresentation(string mediaType, string selectionKey, int value0,
                                                     IntPtr pointer0, int value1, IntPtr pointer1)
        {
            if (mediaType == null) throw new ArgumentNullException("mediaType");
            if (selectionKey == null) throw new ArgumentNullException("selectionKey");
            RepresentationDescriptor descriptor = new RepresentationDescriptor();
            try
            {
                descriptor.mediaType = AllocUtf8(mediaType);
                descriptor.selectionKey = AllocUtf8(selectionKey);
                return QuorlNative.StaticHandler_OnAssetSelectRepresentation(ref descriptor, value0, pointer0, value1,
                                                                             pointer1);
            }
            finally
            {
                if (descriptor.mediaType != IntPtr.Zero) Marshal.FreeHGlobal(descriptor.mediaType);
                if (descriptor.selectionKey != IntPtr.Zero) Marshal.FreeHGlobal(descriptor.selectionKey);
            }
        }

        public static void RelayRepresentationDataReceived(RepresentationData data)
        {
            QuorlNative.StaticHandler_OnAssetRepresentationDataReceived(data.Pointer0, data.Pointer1, data.Pointer2,
                                                                        data.Value, data.Pointer3, data.Amount);
        }

        /// <summary>The message of an error number of the playback family; empty for unknown numbers.</summary>
        public static string ErrorMessage(int code)
        {
            return PtrToUtf8(QuorlNative.QuorlError_ToString(code)) ?? string.Empty;
        }

        // ---- Registration --------------------------------------------------------------------------

        /// <summary>Registers the host: completes the build information and logs the banner.</summary>
        public static void Register(int first, int second, int third, string text)
        {
            if (text == null) throw new ArgumentNullException("text");
            QuorlNative.RegisterUnityPlugin(first, second, third, text);
        }

        // ---- Helpers -------------------------------------------------------------------------------

        // Native code calls the trampoline only while it is registered: set the managed callback before
        // registering, and unregister before clearing it, so no event in between finds it missing.
        private static void Install(Action storeManaged, Action registerNative, bool setting)
        {
            lock (Gate)
            {
                if (setting) storeManaged();
                registerNative();
                if (!setting) storeManaged();
            }
        }

        private static void Report(Exception e)
        {
            try
            {
                Action<Exception> handler = CallbackFailed;
                if (handler != null)
                {
                    handler(e);
                }
                else
                {
                    Console.Error.WriteLine("QuorlBridge: a callback threw: " + e);
                }
            }
            catch
            {
                // Nothing may escape towards native code, not even from the handler.
            }
        }

        /// <summary>Copies a zero-terminated UTF-8 text that native code owns; null for a null pointer.</summary>
        public static string PtrToUtf8(IntPtr text)
        {
            if (text == IntPtr.Zero) return null;
            int length = 0;
            while (Marshal.ReadByte(text, length) != 0) ++length;
            byte[] bytes = new byte[length];
            Marshal.Copy(text, bytes, 0, length);
            return Encoding.UTF8.GetString(bytes);
        }

        private static IntPtr AllocUtf8(string text)
        {
            byte[] bytes = Encoding.UTF8.GetBytes(text);
            IntPtr copy = Marshal.AllocHGlobal(bytes.Length + 1);
            Marshal.Copy(bytes, 0, copy, bytes.Length);
            Marshal.WriteByte(copy, bytes.Length, 0);
            return copy;
        }

        private static string DecodeUntilZero(byte[] buffer)
        {
            int length = Array.IndexOf(buffer, (byte)0);
            return Encoding.UTF8.GetString(buffer, 0, length < 0 ? buffer.Length : length);
        }
    }
}

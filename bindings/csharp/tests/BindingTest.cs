// The binding's test under Mono: calls every export through the binding, including callbacks from native
// threads, and checks by reflection what Mono would let pass but the engine's ahead-of-time runtime would
// not (one-byte bools, marshalled sizes, static callbacks marked for AOT compilation).
//
// Usage: mono BindingTest.exe <path of the exports list, cmake/exports.map>
// Runs in a process of its own: the library's state is process-wide and the test relies on starting empty.
using System;
using System.Collections.Generic;
using System.IO;
using System.Linq;
using System.Reflection;
using System.Runtime.InteropServices;
using System.Text.RegularExpressions;
using System.Threading;
using AOT;
using Quorl;
using Quorl.Native;

static class NativeThreads
{
    const string Helper = "quorl_binding_test_native";

    [DllImport(Helper, CallingConvention = CallingConvention.Cdecl)]
    public static extern int QuorlTest_NativeSize([MarshalAs(UnmanagedType.LPStr)] string record);

    [DllImport(Helper, CallingConvention = CallingConvention.Cdecl)]
    public static extern int QuorlTest_FireOnNativeThread(IntPtr renderEventFunc, int[] ids, int count);

    [DllImport(Helper, CallingConvention = CallingConvention.Cdecl)]
    public static extern int QuorlTest_PlaybackOnNativeThread([MarshalAs(UnmanagedType.LPStr)] string mediaType,
                                                              [MarshalAs(UnmanagedType.LPStr)] string selectionKey,
                                                              IntPtr tag);

    public static void Fire(params int[] ids)
    {
        if (QuorlTest_FireOnNativeThread(QuorlBridge.RenderEventFunc, ids, ids.Length) != 0)
            throw new InvalidOperationException("no native thread could be started");
    }
}

static class BindingTest
{
    static int checks;
    static readonly List<string> failures = new List<string>();
    static int mainThread;

    static void Check(bool holds, string what)
    {
        ++checks;
        if (!holds)
        {
            failures.Add(what);
            Console.WriteLine("FAILED: " + what);
        }
    }

    static void Throws<T>(Action call, string what) where T : Exception
    {
        try
        {
            call();
            Check(false, what + ": no " + typeof(T).Name);
        }
        catch (T)
        {
            Check(true, what);
        }
        catch (Exception e)
        {
            Check(false, what + ": " + e.GetType().Name + " instead of " + typeof(T).Name);
        }
    }

    static int Main(string[] args)
    {
        if (args.Length != 1)
        {
            Console.Error.WriteLine("usage: BindingTest.exe <exports.map>");
            return 2;
        }
        mainThread = Thread.CurrentThread.ManagedThreadId;
        Run("declarations cover the 35 exports", () => DeclarationsCoverExports(args[0]));
        Run("bools are one byte everywhere", BoolsAreOneByte);
        Run("records marshal to their native sizes", RecordsMarshalToNativeSizes);
        Run("callbacks handed to native code are static and AOT-marked", CallbacksAreStaticAndMarked);
        Run("registration", Registration);
        Run("lock and render device", LockAndRenderDevice);
        Run("interface shutdown", InterfaceShutdown);
        Run("render events fired on a native thread", RenderEvents);
        Run("scene objects", SceneObjects);
        Run("named integers", NamedIntegers);
        Run("log buffer", LogBuffer);
        Run("asset relay", AssetRelay);
        Run("error messages", ErrorMessages);
        Run("null arguments stop on the managed side", NullArgumentsStopOnTheManagedSide);

        Console.WriteLine(failures.Count == 0
                              ? "binding test: all " + checks + " checks passed"
                              : "binding test: " + failures.Count + " of " + checks + " checks FAILED");
        return failures.Count == 0 ? 0 : 1;
    }

    static void Run(string name, Action section)
    {
        int before = failures.Count;
        try
        {
            section();
        }
        catch (Exception e)
        {
            Check(false, name + " threw " + e);
        }
        Console.WriteLine((failures.Count == before ? "ok      " : "FAILED  ") + name);
    }

    // ---- Reflection -----------------------------------------------------------------------------

    static IEnumerable<MethodInfo> Imports()
    {
        return typeof(QuorlNative).GetMethods(BindingFlags.Public | BindingFlags.Static)
            .Where(m => Attribute.IsDefined(m, typeof(DllImportAttribute)));
    }

    static void DeclarationsCoverExports(string exportsMap)
    {
        string text = File.ReadAllText(exportsMap);
        string global = text.Substring(text.IndexOf("global:") + 7);
        global = global.Substring(0, global.IndexOf("local:"));
        HashSet<string> exported = new HashSet<string>(
            Regex.Matches(global, @"([A-Za-z_][A-Za-z0-9_]*)\s*;").Cast<Match>().Select(m => m.Groups[1].Value));
        Check(exported.Count == 35, "the exports list names 35 functions, not " + exported.Count);

        HashSet<string> declared = new HashSet<string>();
        foreach (MethodInfo method in Imports())
        {
            DllImportAttribute import = (DllImportAttribute)Attribute.GetCustomAttribute(method, typeof(DllImportAttribute));
            string entry = string.IsNullOrEmpty(import.EntryPoint) ? method.Name : import.EntryPoint;
            Check(declared.Add(entry), entry + " is declared once");
            Check(import.Value == QuorlNative.Library, entry + " imports from " + QuorlNative.Library);
            Check(import.CallingConvention == CallingConvention.Cdecl, entry + " is cdecl");
            Check(method.ReturnType != typeof(string), entry + " returns no string: library texts come back as IntPtr");
        }
        foreach (string name in exported.Except(declared)) Check(false, name + " has no declaration");
        foreach (string name in declared.Except(exported)) Check(false, name + " is declared but not exported");
    }

    static bool IsOneByteBool(ICustomAttributeProvider provider)
    {
        object[] marshal = provider.GetCustomAttributes(typeof(MarshalAsAttribute), false);
        return marshal.Length == 1 && ((MarshalAsAttribute)marshal[0]).Value == UnmanagedType.I1;
    }

    static IEnumerable<Type> BindingTypes()
    {
        return typeof(QuorlNative).Assembly.GetTypes();
    }

    static void CheckSignature(string owner, MethodInfo method)
    {
        if (method.ReturnType == typeof(bool))
            Check(IsOneByteBool(method.ReturnParameter), owner + " returns bool without UnmanagedType.I1");
        foreach (ParameterInfo parameter in method.GetParameters())
        {
            Type type = parameter.ParameterType.IsByRef ? parameter.ParameterType.GetElementType() : parameter.ParameterType;
            if (type == typeof(bool))
                Check(IsOneByteBool(parameter), owner + " parameter " + parameter.Name + " is bool without UnmanagedType.I1");
        }
    }

    static void BoolsAreOneByte()
    {
        foreach (MethodInfo method in Imports()) CheckSignature(method.Name, method);
        foreach (Type type in BindingTypes().Where(t => typeof(Delegate).IsAssignableFrom(t) && t.Namespace == "Quorl.Native"))
        {
            CheckSignature(type.Name, type.GetMethod("Invoke"));
            UnmanagedFunctionPointerAttribute convention = (UnmanagedFunctionPointerAttribute)Attribute.GetCustomAttribute(
                type, typeof(UnmanagedFunctionPointerAttribute));
            Check(convention != null && convention.CallingConvention == CallingConvention.Cdecl, type.Name + " is a cdecl callback");
        }
        foreach (Type type in BindingTypes().Where(t => t.IsValueType && !t.IsEnum))
        {
            foreach (FieldInfo field in type.GetFields(BindingFlags.Instance | BindingFlags.Public | BindingFlags.NonPublic))
            {
                if (field.FieldType == typeof(bool))
                    Check(IsOneByteBool(field), type.Name + "." + field.Name + " is bool without UnmanagedType.I1");
            }
        }
    }

    static void RecordsMarshalToNativeSizes()
    {
        Type[] records = BindingTypes().Where(t => t.IsValueType && !t.IsEnum && t.Namespace == "Quorl.Native").ToArray();
        Check(records.Length == 3, "three records cross the boundary, found " + records.Length);
        foreach (Type record in records)
        {
            int native = NativeThreads.QuorlTest_NativeSize(record.Name);
            Check(native > 0, record.Name + " is a record of the native header");
            Check(Marshal.SizeOf(record) == native,
                  record.Name + " marshals to " + Marshal.SizeOf(record) + " bytes, the native record has " + native);
            Check(record.StructLayoutAttribute.Value == LayoutKind.Sequential, record.Name + " has sequential layout");
        }
        Check(Marshal.OffsetOf(typeof(LogBufferView), "message").ToInt32() == IntPtr.Size,
              "the log view's message follows the padded level");
    }

    static bool IsAotMarked(MethodInfo method, Type delegateType)
    {
        MonoPInvokeCallbackAttribute mark =
            (MonoPInvokeCallbackAttribute)Attribute.GetCustomAttribute(method, typeof(MonoPInvokeCallbackAttribute));
        return method.IsStatic && mark != null && mark.DelegateType == delegateType;
    }

    // Every callback delegate that the safe layer keeps in a static field is one that native code may
    // call: its target must be a static method marked for its own delegate type. Returns how many.
    static int CheckStaticDelegateFields(Type owner)
    {
        int count = 0;
        foreach (FieldInfo field in owner.GetFields(BindingFlags.Static | BindingFlags.Public | BindingFlags.NonPublic))
        {
            // Compiler-generated caches of method groups are filled on first use; the safe layer's own
            // checks (RequireAotCallback) cover what reaches native code through them.
            if (!typeof(Delegate).IsAssignableFrom(field.FieldType) || field.FieldType.Namespace != "Quorl.Native" ||
                field.Name.StartsWith("<")) continue;
            ++count;
            Delegate callback = (Delegate)field.GetValue(null);
            Check(callback != null && callback.Target == null && IsAotMarked(callback.Method, field.FieldType),
                  owner.Name + "." + field.Name + " holds a static method marked [MonoPInvokeCallback(typeof(" +
                      field.FieldType.Name + "))]");
        }
        return count;
    }

    static void CallbacksAreStaticAndMarked()
    {
        int kept = CheckStaticDelegateFields(typeof(QuorlBridge));
        Check(kept == 6, "the safe layer keeps its 6 native callbacks in static fields, found " + kept);
        foreach (Type type in BindingTypes().Concat(typeof(BindingTest).Assembly.GetTypes()))
        {
            foreach (MethodInfo method in type.GetMethods(BindingFlags.Static | BindingFlags.Instance | BindingFlags.Public |
                                                          BindingFlags.NonPublic | BindingFlags.DeclaredOnly))
            {
                MonoPInvokeCallbackAttribute mark =
                    (MonoPInvokeCallbackAttribute)Attribute.GetCustomAttribute(method, typeof(MonoPInvokeCallbackAttribute));
                if (mark == null) continue;
                Check(method.IsStatic, type.Name + "." + method.Name + " is marked but not static");
                MethodInfo invoke = mark.DelegateType.GetMethod("Invoke");
                Check(invoke.ReturnType == method.ReturnType &&
                          invoke.GetParameters().Select(p => p.ParameterType).SequenceEqual(
                              method.GetParameters().Select(p => p.ParameterType)),
                      type.Name + "." + method.Name + " matches the signature of " + mark.DelegateType.Name);
            }
        }
        // The safe layer refuses what only Mono would accept.
        Throws<ArgumentException>(() => QuorlBridge.QueueRenderEvent(new RenderFn(new Instance().Run)),
                                  "an instance method is refused as a native callback");
        Throws<ArgumentException>(() => QuorlBridge.QueueRenderEvent(new RenderFn(Unmarked)),
                                  "a static method without the AOT mark is refused");
        List<int> captured = new List<int>();
        Throws<ArgumentException>(() => QuorlBridge.QueueRenderEvent(new RenderFnI(a => captured.Add(a)), 1),
                                  "a capturing lambda is refused");
        Check(captured.Count == 0, "a refused callback is never queued");
        Throws<ArgumentNullException>(() => QuorlBridge.QueueRenderEvent((RenderFn)null), "a null callback is refused");
    }

    sealed class Instance
    {
        public void Run() { }
    }

    static void Unmarked() { }

    // ---- Calls ----------------------------------------------------------------------------------

    static void Registration()
    {
        QuorlBridge.Register(2022, 3, 0, "binding test");
        QuorlBridge.Register(2022, 3, 0, "");
        Throws<ArgumentNullException>(() => QuorlBridge.Register(1, 2, 3, null), "Register refuses a null text");
    }

    static void LockAndRenderDevice()
    {
        Check(QuorlBridge.RenderDevice == IntPtr.Zero, "the render device is zero");
        bool added = false;
        Thread other = new Thread(() =>
        {
            QuorlBridge.MapAdd("lock.witness", 1);
            Volatile.Write(ref added, true);
        });
        using (QuorlBridge.Lock())
        {
            using (QuorlBridge.Lock()) // recursive: the same thread takes it again
            {
                other.Start();
                Thread.Sleep(100);
                Check(!Volatile.Read(ref added), "another thread waits while the lock is held");
            }
            Check(!Volatile.Read(ref added), "one Unlock of two leaves the lock held");
        }
        other.Join();
        Check(QuorlBridge.MapGetValue("lock.witness") == 1, "the waiting thread went on after the last Unlock");
        QuorlBridge.MapRemove("lock.witness");
    }

    static int shutdownNotices;

    static void InterfaceShutdown()
    {
        QuorlBridge.SetInterfaceShutdownCallback(() => ++shutdownNotices);
        QuorlBridge.AddSceneObject(7, "gate", "Test");
        QuorlBridge.TriggerInterfaceShutdown();
        Check(shutdownNotices == 0, "the shutdown waits while an object exists");
        QuorlBridge.RemoveSceneObject(7);
        Check(shutdownNotices == 1, "removing the last object delivers the notice");
        QuorlBridge.TriggerInterfaceShutdown();
        Check(shutdownNotices == 2, "with no objects the notice comes at once");
        QuorlBridge.SetInterfaceShutdownCallback(null);
        QuorlBridge.TriggerInterfaceShutdown();
        Check(shutdownNotices == 2, "a cleared callback is not called");
    }

    // Render callbacks record what they received and on which thread.
    static readonly List<string> renderLog = new List<string>();
    static readonly HashSet<int> renderThreads = new HashSet<int>();

    static void Record(string entry)
    {
        lock (renderLog)
        {
            renderLog.Add(entry);
            renderThreads.Add(Thread.CurrentThread.ManagedThreadId);
        }
    }

    static string FrameContextText(IntPtr context)
    {
        FrameContext c = QuorlBridge.ReadFrameContext(context);
        return c.structSize + "/" + c.reserved0 + "/" + c.reserved1 + "/" + c.reserved2;
    }

    [MonoPInvokeCallback(typeof(RenderFn))]
    static void RenderPlain() { Record("plain"); }

    [MonoPInvokeCallback(typeof(RenderFnI))]
    static void RenderI(int a) { Record("I " + a); }

    [MonoPInvokeCallback(typeof(RenderFnIII))]
    static void RenderIII(int a, int b, int c) { Record("III " + a + " " + b + " " + c); }

    [MonoPInvokeCallback(typeof(RenderFnFrameContextI))]
    static void RenderFrameContextI(int a, IntPtr context) { Record("FCI " + a + " " + FrameContextText(context)); }

    [MonoPInvokeCallback(typeof(RenderFnFrameContextIII))]
    static void RenderFrameContextIII(int a, int b, int c, IntPtr context)
    {
        Record("FCIII " + a + " " + b + " " + c + " " + FrameContextText(context));
    }

    static void RenderEvents()
    {
        Check(QuorlBridge.RenderEventFunc != IntPtr.Zero, "the render event function has an address");
        int plain = QuorlBridge.QueueRenderEvent(RenderPlain);
        int one = QuorlBridge.QueueRenderEvent(RenderI, -5);
        int three = QuorlBridge.QueueRenderEvent(RenderIII, 1, 2, 3);
        int contextOne = QuorlBridge.QueueRenderEvent(RenderFrameContextI, 9, new IntPtr(1234), new IntPtr(-1));
        int contextThree = QuorlBridge.QueueRenderEvent(RenderFrameContextIII, 4, 5, 6, IntPtr.Zero, new IntPtr(42));
        int managed = QuorlBridge.QueueRenderWork(() => Record("managed closure"));
        FrameContext seen = new FrameContext { structSize = 1, reserved0 = 1, reserved1 = 1, reserved2 = 1 };
        int managedContext = QuorlBridge.QueueRenderWork(context => { seen = context; Record("managed context"); });
        int[] ids = { plain, one, three, contextOne, contextThree, managed, managedContext };
        Check(ids.Distinct().Count() == ids.Length && ids.Min() >= QuorlBridge.RenderEventIdBase,
              "queued work gets distinct ids from 16000 on: " + string.Join(",", ids));
        Check(renderLog.Count == 0, "nothing runs before its id fires");

        NativeThreads.Fire(ids);
        NativeThreads.Fire(ids); // fired again: each id runs at most once
        string[] expected = { "plain", "I -5", "III 1 2 3", "FCI 9 24/0/0/0", "FCIII 4 5 6 24/0/0/0", "managed closure",
                              "managed context" };
        Check(renderLog.SequenceEqual(expected), "each id ran its work once, in firing order, with its arguments: " +
                                                     string.Join(" | ", renderLog));
        Check(seen.structSize == 24 && seen.reserved0 == 0 && seen.reserved1 == 0 && seen.reserved2 == 0,
              "managed work receives the prepared frame context");
        Check(!renderThreads.Contains(mainThread) && renderThreads.Count == 1,
              "render work ran on the native render thread, not on the script's thread");

        // A managed exception stops at the boundary and is reported; later ids still work.
        Exception reported = null;
        Action<Exception> handler = e => reported = e;
        QuorlBridge.CallbackFailed += handler;
        int throwing = QuorlBridge.QueueRenderWork(() => { throw new InvalidOperationException("render work failed"); });
        int after = QuorlBridge.QueueRenderWork(() => Record("after"));
        NativeThreads.Fire(throwing, after);
        QuorlBridge.CallbackFailed -= handler;
        Check(reported is InvalidOperationException, "an exception in render work reaches CallbackFailed");
        Check(renderLog.Last() == "after", "work queued after a failing one still runs");

        // Firing from a script thread works too, and ids outside the table do nothing.
        int local = QuorlBridge.QueueRenderEvent(RenderI, 77);
        QuorlBridge.FireRenderEvent(QuorlBridge.RenderEventIdBase - 1);
        QuorlBridge.FireRenderEvent(local + 1000);
        QuorlBridge.FireRenderEvent(local);
        Check(renderLog.Last() == "I 77" && renderLog.Count == expected.Length + 2,
              "firing on the calling thread runs the work once, stray ids nothing");
    }

    static void SceneObjects()
    {
        string longName = new string('n', 300) + "-end";
        QuorlBridge.AddSceneObject(1, "Alpha", "MeshRenderer");
        QuorlBridge.AddSceneObject(2, longName, "QuorlVolumetricPlayer");
        QuorlBridge.AddSceneObject(3, "Gämma ✓", "");
        Check(QuorlBridge.SceneObjectCount == 3, "three objects counted");
        Check(QuorlBridge.SceneObjectHandles().SequenceEqual(new[] { 1, 2, 3 }), "handles come in insertion order");
        Check(QuorlBridge.SceneObjectName(1) == "Alpha" && QuorlBridge.SceneObjectType(1) == "MeshRenderer",
              "name and type read back");
        Check(QuorlBridge.SceneObjectName(2) == longName, "a name longer than the first buffer is read whole");
        Check(QuorlBridge.SceneObjectName(3) == "Gämma ✓" && QuorlBridge.SceneObjectType(3) == "",
              "UTF-8 and empty texts survive the round trip");
        Check(QuorlBridge.FindSceneObject("Gämma ✓") == 3 && QuorlBridge.FindSceneObject("alpha") == 0,
              "look-up by name is exact");
        Check(QuorlBridge.SceneObjectName(99) == null && QuorlBridge.SceneObjectType(99) == null,
              "an unknown handle reads as null");

        byte[] cut = new byte[4];
        bool whole = QuorlNative.Scene_Objects_GetNameFromHandle(1, cut, cut.Length);
        Check(!whole && cut[0] == (byte)'A' && cut[2] == (byte)'p' && cut[3] == 0,
              "the raw call reports a cut name as false with its first size-1 bytes");
        Check(QuorlNative.Scene_Objects_GetHandleAtIndex(1) == 2 && QuorlNative.Scene_Objects_GetHandleAtIndex(3) == 0,
              "raw index look-ups");

        QuorlBridge.RemoveSceneObject(2);
        Check(QuorlBridge.SceneObjectHandles().SequenceEqual(new[] { 1, 3 }), "removal keeps the others in order");
        QuorlBridge.RemoveSceneObject(1);
        QuorlBridge.RemoveSceneObject(3);
        Check(QuorlBridge.SceneObjectHandles().Length == 0, "an empty registry lists no handles");
    }

    static void NamedIntegers()
    {
        QuorlBridge.MapAdd("score", 1);
        QuorlBridge.MapAdd("score", 2);
        Check(QuorlBridge.MapGetValue("score") == 1, "MapAdd never overwrites");
        QuorlBridge.MapSetValue("score", 5);
        Check(QuorlBridge.MapGetValue("score") == 5, "MapSetValue overwrites");
        QuorlBridge.MapSetValue("absent", 3);
        int value;
        Check(!QuorlBridge.MapContains("absent") && !QuorlBridge.TryGetMapValue("absent", out value) && value == 0,
              "MapSetValue never creates");
        QuorlBridge.MapAdd("", 0);
        Check(QuorlBridge.TryGetMapValue("", out value) && value == 0, "a stored zero is told apart from absence");
        Check(!QuorlBridge.MapContains("Score"), "names are case-sensitive");
        QuorlBridge.MapRemove("score");
        QuorlBridge.MapRemove("");
        Check(!QuorlBridge.MapContains("score") && QuorlBridge.MapGetValue("score") == 0, "MapRemove erases");
    }

    static void LogBuffer()
    {
        LogEntry entry;
        Check(!QuorlBridge.TryTakeLog(out entry), "an empty log buffer gives nothing");
        string longText = string.Join(" ", Enumerable.Repeat("entry", 40));
        QuorlBridge.AddLog(2, longText);
        QuorlBridge.AddLog(-7, "zweite Meldung ✓");
        IntPtr first = QuorlNative.LogBuffer_Get();
        Check(first != IntPtr.Zero && first == QuorlNative.LogBuffer_Get(), "the view stays at one address");
        Check(QuorlBridge.TryTakeLog(out entry) && entry.Level == 2 && entry.Message == longText,
              "the oldest entry comes first, whole");
        Check(QuorlBridge.TryTakeLog(out entry) && entry.Level == -7 && entry.Message == "zweite Meldung ✓",
              "then the next, level and UTF-8 text intact");
        Check(!QuorlBridge.TryTakeLog(out entry), "then nothing");
        QuorlNative.LogBuffer_Pop(); // on the empty buffer: no effect
        Check(QuorlNative.LogBuffer_Get() == IntPtr.Zero, "popping the empty buffer changes nothing");
    }

    static int initialisedValue;
    static IntPtr initialisedPointer;
    static Representation offered;
    static RepresentationData received;
    static readonly HashSet<int> relayThreads = new HashSet<int>();

    static void AssetRelay()
    {
        // Without host callbacks the built-in policy decides and holds the first volumetric key.
        Check(QuorlBridge.RelaySelectRepresentation("video/h264", "", 0, IntPtr.Zero, 0, IntPtr.Zero),
              "a non-volumetric representation is accepted");
        Check(QuorlBridge.RelaySelectRepresentation("volumetric/mesh", "A", 0, IntPtr.Zero, 0, IntPtr.Zero),
              "the first volumetric key is accepted");
        Check(!QuorlBridge.RelaySelectRepresentation("volumetric/mesh", "B", 0, IntPtr.Zero, 0, IntPtr.Zero),
              "another key is then refused");
        Check(NativeThreads.QuorlTest_PlaybackOnNativeThread("volumetric/cloud", "A", new IntPtr(5)) == 1,
              "the held key is accepted from a playback thread too");
        QuorlBridge.RelayAssetInitialised(1, IntPtr.Zero); // no callback: lost, without effect
        QuorlBridge.RelayRepresentationDataReceived(new RepresentationData());

        // With host callbacks set, events from a native playback thread reach managed code unchanged.
        QuorlBridge.SetOnAssetInitialised((value, pointer) =>
        {
            initialisedValue = value;
            initialisedPointer = pointer;
            lock (relayThreads) relayThreads.Add(Thread.CurrentThread.ManagedThreadId);
            QuorlBridge.MapAdd("relay.reentered", value); // the handler holds the recursive lock
        });
        QuorlBridge.SetOnAssetSelectRepresentation(offer =>
        {
            offered = offer;
            return offer.SelectionKey == "B"; // the host overrides the held key
        });
        QuorlBridge.SetOnAssetRepresentationDataReceived(data => received = data);
        IntPtr tag = new IntPtr(0x5eed);
        int answer = NativeThreads.QuorlTest_PlaybackOnNativeThread("volumetric/mesh", "B", tag);
        Check(answer == 1, "the relay returns the host's answer (" + answer + ")");
        Check(initialisedValue == 41 && initialisedPointer == tag, "initialisation arrives with its arguments");
        Check(offered.MediaType == "volumetric/mesh" && offered.SelectionKey == "B" && offered.Value0 == 1 &&
                  offered.Pointer0 == tag && offered.Value1 == 2 && offered.Pointer1 == offered.Descriptor,
              "the offer arrives with its descriptor and arguments");
        Check(received.Pointer0 == tag && received.Pointer1 == offered.Descriptor && received.Value == 3 &&
                  received.Pointer3 == IntPtr.Zero && received.Amount == 0.75f,
              "a data chunk arrives with its arguments and the float in place");
        Check(QuorlBridge.MapGetValue("relay.reentered") == 41, "a callback may call back into the library");
        Check(relayThreads.Count == 1 && !relayThreads.Contains(mainThread), "callbacks ran on the native playback thread");
        Check(NativeThreads.QuorlTest_PlaybackOnNativeThread("volumetric/mesh", "A", tag) == 0,
              "the host's refusal comes back as false");

        // A throwing callback refuses and is reported; it never unwinds into native code.
        Exception reported = null;
        Action<Exception> handler = e => reported = e;
        QuorlBridge.CallbackFailed += handler;
        QuorlBridge.SetOnAssetSelectRepresentation(offer => { throw new InvalidOperationException("host failed"); });
        Check(!QuorlBridge.RelaySelectRepresentation("video/h264", "", 0, IntPtr.Zero, 0, IntPtr.Zero),
              "a throwing selection callback refuses");
        QuorlBridge.CallbackFailed -= handler;
        Check(reported is InvalidOperationException, "the callback's exception reaches CallbackFailed");

        // Cleared again, the policy resumes with the key it held before.
        QuorlBridge.SetOnAssetInitialised(null);
        QuorlBridge.SetOnAssetSelectRepresentation(null);
        QuorlBridge.SetOnAssetRepresentationDataReceived(null);
        initialisedValue = 0;
        Check(!QuorlBridge.RelaySelectRepresentation("volumetric/mesh", "B", 0, IntPtr.Zero, 0, IntPtr.Zero) &&
                  QuorlBridge.RelaySelectRepresentation("volumetric/mesh", "A", 0, IntPtr.Zero, 0, IntPtr.Zero),
              "cleared callbacks hand the decision back to the policy, key \"A\" still held");
        QuorlBridge.RelayAssetInitialised(9, IntPtr.Zero);
        Check(initialisedValue == 0, "a cleared callback receives nothing");
    }

    static void ErrorMessages()
    {
        Check(QuorlBridge.ErrorMessage(0) == "Success", "code 0");
        Check(QuorlBridge.ErrorMessage(205) == "Cached copy not valid for offline playback", "code 205");
        Check(QuorlBridge.ErrorMessage(206) == "" && QuorlBridge.ErrorMessage(-1) == "", "unknown codes give the empty text");
        IntPtr raw = QuorlNative.QuorlError_ToString(201);
        Check(raw != IntPtr.Zero && raw == QuorlNative.QuorlError_ToString(201), "the text is the library's static storage");
    }

    static void NullArgumentsStopOnTheManagedSide()
    {
        QuorlBridge.AddSceneObject(5, "present", "T"); // with a record present the native look-up would throw
        Throws<ArgumentNullException>(() => QuorlBridge.AddSceneObject(6, null, "T"), "AddSceneObject(null name)");
        Throws<ArgumentNullException>(() => QuorlBridge.AddSceneObject(6, "n", null), "AddSceneObject(null type)");
        Throws<ArgumentNullException>(() => QuorlBridge.FindSceneObject(null), "FindSceneObject(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.MapAdd(null, 1), "MapAdd(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.MapRemove(null), "MapRemove(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.MapContains(null), "MapContains(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.MapGetValue(null), "MapGetValue(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.MapSetValue(null, 1), "MapSetValue(null)");
        int ignored;
        Throws<ArgumentNullException>(() => QuorlBridge.TryGetMapValue(null, out ignored), "TryGetMapValue(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.AddLog(0, null), "AddLog(null)");
        Throws<ArgumentNullException>(() => QuorlBridge.RelaySelectRepresentation(null, "k", 0, IntPtr.Zero, 0, IntPtr.Zero),
                                      "RelaySelectRepresentation(null media type)");
        Throws<ArgumentNullException>(() => QuorlBridge.RelaySelectRepresentation("volumetric/x", null, 0, IntPtr.Zero, 0,
                                                                                 IntPtr.Zero),
                                      "RelaySelectRepresentation(null key)");
        Throws<ArgumentNullException>(() => QuorlBridge.QueueRenderWork((Action)null), "QueueRenderWork(null)");
        Check(QuorlBridge.SceneObjectCount == 1 && QuorlBridge.SceneObjectHandles()[0] == 5,
              "refused calls changed nothing");
        QuorlBridge.RemoveSceneObject(5);
        LogEntry entry;
        Check(!QuorlBridge.TryTakeLog(out entry), "refused calls logged nothing");
    }
}

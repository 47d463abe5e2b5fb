// Shapes whose values cannot travel as objects (pointers, function pointers,
// typed references, spans and other stack-only types), constructors that
// call constructors on locals, tail calls, and a stack trace whose line
// numbers must stay those of the source.
using System.Reflection;
using System.Reflection.Emit;
using System.Runtime.CompilerServices;
using System.Runtime.Loader;

namespace Stress
{
    public ref struct Window
    {
        public int Start;
        public int Length;

        public Window(int start, int length) { Start = start; Length = length; }

        public int End() => Start + Length;
    }

    public struct Cell
    {
        public int Value;

        public Cell(int value, bool negate)
        {
            // A constructor of the same struct on a local, behind a branch,
            // before this one's own fields are set.
            Cell other = negate ? new Cell(-value) : new Cell(value);
            Value = other.Value * 10;
        }

        public Cell(int value) { Value = value; }
    }

    public class Holder
    {
        public readonly int Value;

        public Holder(int value, bool twice) : this(twice ? value * 2 : value) { }

        public Holder(int value)
        {
            Cell cell = new Cell(value, false);
            Value = cell.Value;
        }
    }

    public static unsafe class Hostile
    {
        public static int Sum(byte* bytes, int count)
        {
            int total = 0;
            for (int i = 0; i < count; i++)
                total += bytes[i];
            return total;
        }

        // The parameters behind a void* must still be read as what they are.
        public static string AfterVoid(void* where, int number, string text) => text + number + (where != null);

        public static int Apply(delegate*<int, int> function, int value) => function(value);

        public static int Twice(int value) => value * 2;

        public static int Typed(TypedReference reference) => __refvalue(reference, int) + 1;

        public static int* Next(int* place) => place + 1;

        public static Span<int> Tail(int[] numbers) => numbers.AsSpan(1);

        public static ReadOnlySpan<byte> Letters() => "xyz"u8;

        public static Window Make(int start, int length) => new Window(start, length);

        public static int Length<T>(T value) where T : allows ref struct => Unsafe.SizeOf<T>();

        public static T Same<T>(T value) where T : allows ref struct => value;

        public static int Collection()
        {
            ReadOnlySpan<int> numbers = [4, 5, 6];
            int total = 0;
            foreach (int n in numbers)
                total += n;
            return total;
        }

        [MethodImpl(MethodImplOptions.NoInlining)]
        public static int Thrower(int depth)
        {
            if (depth == 0)
                throw new InvalidOperationException("deep");
            return Thrower(depth - 1) + 1;
        }

        private static bool finallyRan;

        [MethodImpl(MethodImplOptions.NoInlining)]
        private static void ThrowThroughFinally()
        {
            try
            {
                throw new InvalidOperationException("filtered");
            }
            finally
            {
                finallyRan = true;
            }
        }

        private static bool Observe(ref bool seen)
        {
            seen = finallyRan;
            return true;
        }

        // An exception filter runs before the finally blocks of the frames the
        // exception leaves: a rewriter that caught and rethrew would run them first.
        public static string FilterOrder()
        {
            finallyRan = false;
            bool seenInFilter = false;
            try
            {
                ThrowThroughFinally();
            }
            catch (InvalidOperationException) when (Observe(ref seenInFilter))
            {
            }
            return "the filter saw the finally block run: " + seenInFilter;
        }

        // The frames of this file with their lines, as the runtime reports them.
        public static string Lines()
        {
            try
            {
                Thrower(2);
                return "no exception";
            }
            catch (InvalidOperationException e)
            {
                var lines = e.ToString().Split('\n').Where(l => l.Contains("Hostile.cs"))
                    .Select(l => l.Trim().Substring(3, l.Trim().IndexOf('(') - 3) + l.Substring(l.LastIndexOf(':')).Trim());
                return string.Join(" ", lines);
            }
        }

        // Mutually recursive methods that end in tail calls, a million deep:
        // without the tail calls the stack would not hold them. Beside them, a
        // method that throws a string, which is no exception, through another.
        public static string TailCalls()
        {
            var name = new AssemblyName("StressTail");
            var builder = new PersistedAssemblyBuilder(name, typeof(object).Assembly);
            ModuleBuilder module = builder.DefineDynamicModule("StressTail");
            TypeBuilder type = module.DefineType("StressTail.Parity", TypeAttributes.Public | TypeAttributes.Abstract |
                                                                      TypeAttributes.Sealed);
            MethodBuilder even = type.DefineMethod("Even", MethodAttributes.Public | MethodAttributes.Static,
                                                   typeof(bool), new[] { typeof(int) });
            MethodBuilder odd = type.DefineMethod("Odd", MethodAttributes.Public | MethodAttributes.Static,
                                                  typeof(bool), new[] { typeof(int) });
            Emit(even, odd, true);
            Emit(odd, even, false);
            MethodBuilder raw = type.DefineMethod("Raw", MethodAttributes.Public | MethodAttributes.Static);
            ILGenerator rawIL = raw.GetILGenerator();
            rawIL.Emit(OpCodes.Ldstr, "a string");
            rawIL.Emit(OpCodes.Throw);
            MethodBuilder through = type.DefineMethod("Through", MethodAttributes.Public | MethodAttributes.Static);
            ILGenerator throughIL = through.GetILGenerator();
            throughIL.Emit(OpCodes.Call, raw);
            throughIL.Emit(OpCodes.Ret);
            type.CreateType();
            using var stream = new MemoryStream();
            builder.Save(stream);
            stream.Position = 0;
            Assembly loaded = AssemblyLoadContext.Default.LoadFromStream(stream);
            MethodInfo evenMethod = loaded.GetType("StressTail.Parity").GetMethod("Even");
            var isEven = evenMethod.CreateDelegate<Func<int, bool>>();
            string thrown;
            try
            {
                loaded.GetType("StressTail.Parity").GetMethod("Through").CreateDelegate<Action>()();
                thrown = "nothing thrown";
            }
            catch (RuntimeWrappedException wrapped)
            {
                thrown = "thrown: " + wrapped.WrappedException;
            }
            return isEven(1_000_000) + " " + isEven(777_777) + " " + thrown;
        }

        // A class the program emits and runs in memory, in a module that never
        // has an image: nothing may be written into it behind its back.
        public static string Emitted()
        {
            var builder = AssemblyBuilder.DefineDynamicAssembly(new AssemblyName("StressEmitted"),
                                                                AssemblyBuilderAccess.Run);
            TypeBuilder type = builder.DefineDynamicModule("StressEmitted").DefineType("StressEmitted.Doubler",
                                                                                        TypeAttributes.Public);
            MethodBuilder twice = type.DefineMethod("Twice", MethodAttributes.Public | MethodAttributes.Static,
                                                    typeof(int), new[] { typeof(int) });
            ILGenerator il = twice.GetILGenerator();
            il.Emit(OpCodes.Ldarg_0);
            il.Emit(OpCodes.Ldc_I4_2);
            il.Emit(OpCodes.Mul);
            il.Emit(OpCodes.Ret);
            var doubled = type.CreateType().GetMethod("Twice").CreateDelegate<Func<int, int>>();
            return Enumerable.Range(0, 5).Sum(doubled).ToString();
        }

        // An assembly loaded from memory into a context that is unloaded, three
        // times over: each load is a module of its own, traced and let go.
        public static string Collectible()
        {
            var builder = new PersistedAssemblyBuilder(new AssemblyName("StressPlugin"), typeof(object).Assembly);
            TypeBuilder type = builder.DefineDynamicModule("StressPlugin").DefineType("StressPlugin.Square",
                                                                                      TypeAttributes.Public);
            MethodBuilder of = type.DefineMethod("Of", MethodAttributes.Public | MethodAttributes.Static, typeof(int),
                                                 new[] { typeof(int) });
            ILGenerator il = of.GetILGenerator();
            il.Emit(OpCodes.Ldarg_0);
            il.Emit(OpCodes.Dup);
            il.Emit(OpCodes.Mul);
            il.Emit(OpCodes.Ret);
            type.CreateType();
            using var image = new MemoryStream();
            builder.Save(image);
            int total = 0;
            for (int round = 1; round <= 3; round++)
            {
                var context = new AssemblyLoadContext("plugin" + round, isCollectible: true);
                image.Position = 0;
                var square = context.LoadFromStream(image).GetType("StressPlugin.Square").GetMethod("Of");
                total += (int)square.Invoke(null, new object[] { round });
                context.Unload();
            }
            GC.Collect();
            GC.WaitForPendingFinalizers();
            return total.ToString();
        }

        // if (n == 0) return atZero; return tail. other(n - 1);
        private static void Emit(MethodBuilder method, MethodBuilder other, bool atZero)
        {
            ILGenerator il = method.GetILGenerator();
            Label notZero = il.DefineLabel();
            il.Emit(OpCodes.Ldarg_0);
            il.Emit(OpCodes.Brtrue_S, notZero);
            il.Emit(atZero ? OpCodes.Ldc_I4_1 : OpCodes.Ldc_I4_0);
            il.Emit(OpCodes.Ret);
            il.MarkLabel(notZero);
            il.Emit(OpCodes.Ldarg_0);
            il.Emit(OpCodes.Ldc_I4_1);
            il.Emit(OpCodes.Sub);
            il.Emit(OpCodes.Tailcall);
            il.Emit(OpCodes.Call, other);
            il.Emit(OpCodes.Ret);
        }

        public static string Run()
        {
            byte* bytes = stackalloc byte[] { 1, 2, 3, 4 };
            int number = 41;
            int[] numbers = { 7, 8, 9 };
            Window window = Make(3, 4);
            return Sum(bytes, 4) + " " + AfterVoid(bytes, 7, "v") + " " + Apply(&Twice, 21) + " " +
                   Typed(__makeref(number)) + " " + (*Next(&number - 1)) + " " + Tail(numbers).Length + " " +
                   Letters().Length + " " + window.End() + " " + Length(numbers.AsSpan()) + " " +
                   Same(numbers.AsSpan()).Length + " " + Collection() + " " + new Cell(4, true).Value + " " +
                   new Holder(5, true).Value;
        }
    }
}
